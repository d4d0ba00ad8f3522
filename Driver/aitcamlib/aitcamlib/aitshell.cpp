#include "aitshell.h"

#include <errno.h>
#include <stdio.h>
#include <sys/wait.h>
#include <unistd.h>

int AITCAM_ExecuteShell(const char* pszCommand) {
    if (pszCommand == nullptr) {
        return -1;
    }
    // vfork: the host is a large process and the child does nothing but exec.
    const pid_t child = vfork();  // NOLINT(clang-analyzer-security.insecureAPI.vfork)
    if (child == 0) {
        execl("/bin/sh", "/bin/sh", "-c", pszCommand, static_cast<char*>(nullptr));
        _exit(1);
    }
    if (child < 0) {
        fprintf(stderr, "vfork fail\n");
        return -1;
    }
    pid_t ended;
    do {
        ended = waitpid(child, nullptr, 0);
    } while (ended < 0 && errno == EINTR);
    if (ended != child) {
        fprintf(stderr, "waitpid fail - Command : %s\n", pszCommand);
        return -1;
    }
    return 0;
}
