#include "host/base/process.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>

#include <atomic>
#include <cerrno>
#include <cstring>

#include "host/base/exit_code.h"

namespace camhost {

namespace {

std::atomic<pid_t> running{0};

void pass_on(int signal) {
    if (const pid_t child = running.load(); child > 0 && signal != SIGINT) {
        kill(child, signal);
    }
}

/// While it lives, signals that would end this program do not.
class SignalsPassedOn {
  public:
    SignalsPassedOn() {
        struct sigaction action {};
        action.sa_handler = pass_on;
        for (size_t i = 0; i < kCount; ++i) {
            sigaction(kSignals[i], &action, &before_[i]);
        }
    }
    ~SignalsPassedOn() {
        for (size_t i = 0; i < kCount; ++i) {
            sigaction(kSignals[i], &before_[i], nullptr);
        }
    }
    SignalsPassedOn(const SignalsPassedOn&) = delete;
    SignalsPassedOn& operator=(const SignalsPassedOn&) = delete;

  private:
    static constexpr size_t kCount = 3;
    static constexpr int kSignals[kCount] = {SIGINT, SIGTERM, SIGHUP};
    struct sigaction before_[kCount];
};

class FileActions {
  public:
    explicit FileActions(const std::filesystem::path& output) {
        posix_spawn_file_actions_init(&actions_);
        if (!output.empty()) {
            posix_spawn_file_actions_addopen(&actions_, 1, output.c_str(),
                                             O_WRONLY | O_CREAT | O_TRUNC, 0644);
            posix_spawn_file_actions_adddup2(&actions_, 1, 2);
        }
    }
    ~FileActions() { posix_spawn_file_actions_destroy(&actions_); }
    FileActions(const FileActions&) = delete;
    FileActions& operator=(const FileActions&) = delete;

    const posix_spawn_file_actions_t* get() const { return &actions_; }

  private:
    posix_spawn_file_actions_t actions_;
};

int wait_for(pid_t child) {
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

}  // namespace

int run_program(const std::vector<std::string>& command, const std::filesystem::path& output) {
    std::vector<char*> words;
    words.reserve(command.size() + 1);
    for (const std::string& word : command) {
        words.push_back(const_cast<char*>(word.c_str()));
    }
    words.push_back(nullptr);
    const SignalsPassedOn signals;
    const FileActions actions(output);
    pid_t child = 0;
    const int error =
        posix_spawnp(&child, words.front(), actions.get(), nullptr, words.data(), environ);
    if (error != 0) {
        throw Failure(ExitCode::kFailed,
                      "cannot start " + command.front() + ": " + std::strerror(error));
    }
    running = child;
    const int code = wait_for(child);
    running = 0;
    return code;
}

}  // namespace camhost
