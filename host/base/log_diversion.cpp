#include "host/base/log_diversion.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "host/base/exit_code.h"

namespace camhost {

LogDiversion::LogDiversion(const std::filesystem::path& log) {
    std::fflush(stdout);
    const int file = open(log.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC, 0666);
    if (file < 0) {
        throw Failure(ExitCode::kFailed, "cannot write " + log.string() + ": " + strerror(errno));
    }
    console_fd_ = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3);
    const bool diverted = console_fd_ >= 0 && dup2(file, STDOUT_FILENO) >= 0;
    close(file);
    if (!diverted) {
        throw Failure(ExitCode::kFailed, "cannot divert standard output");
    }
}

LogDiversion::~LogDiversion() {
    std::fflush(stdout);
    dup2(console_fd_, STDOUT_FILENO);
    close(console_fd_);
}

}  // namespace camhost
