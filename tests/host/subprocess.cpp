#include "tests/host/subprocess.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <stdexcept>

namespace camhost::test {

namespace {

using Clock = std::chrono::steady_clock;

/// The three streams of a child, seen from the parent.
struct Ends {
    int in = -1;
    int out = -1;
    int err = -1;
};

[[noreturn]] void become(const std::vector<std::string>& command,
                         const std::vector<std::string>& environment) {
    for (const std::string& entry : environment) {
        const size_t equals = entry.find('=');
        setenv(entry.substr(0, equals).c_str(), entry.substr(equals + 1).c_str(), 1);
    }
    std::vector<char*> arguments;
    arguments.reserve(command.size() + 1);
    for (const std::string& word : command) {
        arguments.push_back(const_cast<char*>(word.c_str()));
    }
    arguments.push_back(nullptr);
    execv(arguments.front(), arguments.data());
    _exit(127);
}

void make_pipe(int ends[2]) {
    if (pipe2(ends, O_CLOEXEC) != 0) {
        throw std::runtime_error("no pipe");
    }
}

pid_t start(const std::vector<std::string>& command, const std::vector<std::string>& environment,
            bool terminal, Ends* parent) {
    int in[2];
    int out[2];
    int err[2];
    make_pipe(err);
    if (terminal) {
        int child_side = -1;
        openpty(&parent->out, &child_side, nullptr, nullptr, nullptr);
        parent->in = dup(parent->out);
        in[0] = out[1] = child_side;
    } else {
        make_pipe(in);
        make_pipe(out);
        parent->in = in[1];
        parent->out = out[0];
    }
    parent->err = err[0];
    const pid_t child = fork();
    if (child == 0) {
        dup2(in[0], STDIN_FILENO);
        dup2(out[1], STDOUT_FILENO);
        dup2(err[1], STDERR_FILENO);
        become(command, environment);
    }
    close(in[0]);
    if (!terminal) {
        close(out[1]);
    }
    close(err[1]);
    return child;
}

/// Moves what can be read into the text; false at the end of the stream.
bool drain(int fd, std::string* text) {
    char chunk[4096];
    const ssize_t got = read(fd, chunk, sizeof(chunk));
    if (got > 0) {
        text->append(chunk, static_cast<size_t>(got));
    }
    return got > 0 || (got < 0 && errno == EINTR);
}

void perform(const Interaction& interaction, pid_t child, int in) {
    if (interaction.signal != 0) {
        kill(child, interaction.signal);
    }
    if (!interaction.input.empty() &&
        write(in, interaction.input.data(), interaction.input.size()) < 0) {
        throw std::runtime_error("the process does not read");
    }
}

}  // namespace

ProcessResult run_process(const std::vector<std::string>& command,
                          const std::vector<std::string>& environment,
                          const std::vector<Interaction>& interactions, bool terminal,
                          std::chrono::seconds limit) {
    Ends ends;
    const pid_t child = start(command, environment, terminal, &ends);
    ProcessResult result;
    const auto deadline = Clock::now() + limit;
    size_t next = 0;
    size_t searched = 0;
    bool out_open = true;
    bool err_open = true;
    while (out_open || err_open) {
        while (next < interactions.size()) {
            const size_t found = result.out.find(interactions[next].when, searched);
            if (found == std::string::npos) {
                break;
            }
            searched = found + interactions[next].when.size();
            perform(interactions[next++], child, ends.in);
        }
        if (next == interactions.size() && ends.in >= 0 && !terminal) {
            close(ends.in);
            ends.in = -1;
        }
        if (Clock::now() > deadline) {
            kill(child, SIGKILL);
        }
        pollfd entries[2] = {{out_open ? ends.out : -1, POLLIN, 0},
                             {err_open ? ends.err : -1, POLLIN, 0}};
        poll(entries, 2, 500);
        out_open = out_open && (entries[0].revents == 0 || drain(ends.out, &result.out));
        err_open = err_open && (entries[1].revents == 0 || drain(ends.err, &result.err));
    }
    int status = 0;
    waitpid(child, &status, 0);
    result.code = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    for (const int fd : {ends.in, ends.out, ends.err}) {
        if (fd >= 0) {
            close(fd);
        }
    }
    return result;
}

std::string output_of(std::vector<std::string> command) {
    command.insert(command.begin(), "/usr/bin/env");
    const ProcessResult result = run_process(command);
    EXPECT_EQ(result.code, 0) << command[1] << ": " << result.err;
    return result.out;
}

}  // namespace camhost::test
