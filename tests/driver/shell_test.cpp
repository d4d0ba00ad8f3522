// Shell commands: run and waited for, result by what became of the child, not by its exit status.
#include <errno.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <signal.h>
#include <stddef.h>
#include <stdio.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

#include <atomic>
#include <string>

#include "aitshell.h"
#include "tests/support/PluginTest.h"

namespace test {
namespace {

class Shell : public PluginTest {
  protected:
    Shell() { unlink(m_Path.c_str()); }
    ~Shell() override { unlink(m_Path.c_str()); }

    bool Exists() const { return access(m_Path.c_str(), F_OK) == 0; }

    const std::string m_Path = ::testing::TempDir() + "shell_test." + std::to_string(getpid());
};

TEST_F(Shell, NullCommandIsRefused) {
    EXPECT_EQ(AITCAM_ExecuteShell(nullptr), -1);
}

TEST_F(Shell, CommandHasEndedWhenTheCallReturns) {
    EXPECT_EQ(AITCAM_ExecuteShell(("sleep 0.05; touch '" + m_Path + "'").c_str()), 0);
    EXPECT_TRUE(Exists());
}

TEST_F(Shell, CommandGoesThroughTheShell) {
    EXPECT_EQ(AITCAM_ExecuteShell(("test $((1 + 1)) = 2 && : > '" + m_Path + "'").c_str()), 0);
    EXPECT_TRUE(Exists());
}

TEST_F(Shell, ExitStatusIsNotLookedAt) {
    EXPECT_EQ(AITCAM_ExecuteShell("exit 7"), 0);
    EXPECT_EQ(AITCAM_ExecuteShell("kill -9 $$"), 0);
    EXPECT_EQ(AITCAM_ExecuteShell("/nonexistent/program 2>/dev/null"), 0);
}

std::atomic<int> g_Alarms{0};

TEST_F(Shell, WaitIsRetriedWhenASignalInterruptsIt) {
    g_Alarms = 0;
    struct sigaction action = {};
    action.sa_handler = [](int) { ++g_Alarms; };
    struct sigaction before = {};
    ASSERT_EQ(sigaction(SIGALRM, &action, &before), 0);  // without SA_RESTART
    const itimerval often = {{0, 5000}, {0, 5000}};
    setitimer(ITIMER_REAL, &often, nullptr);
    const int result = AITCAM_ExecuteShell(("sleep 0.1; touch '" + m_Path + "'").c_str());
    const itimerval never = {};
    setitimer(ITIMER_REAL, &never, nullptr);
    sigaction(SIGALRM, &before, nullptr);
    EXPECT_EQ(result, 0);
    EXPECT_TRUE(Exists());
    EXPECT_GT(g_Alarms, 0);
}

TEST_F(Shell, FailedWaitIsReportedWithTheCommand) {
    struct sigaction ignore = {};
    ignore.sa_handler = SIG_IGN;  // children leave no status behind
    struct sigaction before = {};
    ASSERT_EQ(sigaction(SIGCHLD, &ignore, &before), 0);
    ::testing::internal::CaptureStderr();
    const int result = AITCAM_ExecuteShell("exit 0");
    const std::string said = ::testing::internal::GetCapturedStderr();
    sigaction(SIGCHLD, &before, nullptr);
    EXPECT_EQ(result, -1);
    EXPECT_EQ(said, "waitpid fail - Command : exit 0\n");
}

// ThreadSanitizer turns vfork into fork.
#if defined(__x86_64__) && !defined(__SANITIZE_THREAD__)
/// Makes this process unable to create children.
void RefuseVfork() {
    static sock_filter program[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_vfork, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EAGAIN),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    static const sock_fprog filter = {4, program};
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 ||
        prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) != 0) {
        _exit(77);
    }
}

TEST_F(Shell, FailedVforkIsReported) {
    EXPECT_EXIT(
        {
            RefuseVfork();
            _exit(AITCAM_ExecuteShell("exit 0") == -1 ? 0 : 1);
        },
        ::testing::ExitedWithCode(0), "^vfork fail\n$");
}
#endif

}  // namespace
}  // namespace test
