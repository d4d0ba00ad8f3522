#include "tests/system/program.h"

#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <system_error>

#include "tests/system/usb_tree.h"

namespace system_test {
namespace {

double children_cpu_seconds() {
    rusage usage{};
    ::getrusage(RUSAGE_CHILDREN, &usage);
    const auto seconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
    };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

int exit_code_of(int status) {
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

}  // namespace

ProgramResult run_program(const std::string& command, int seconds) {
    const double before = children_cpu_seconds();
    const std::string line =
        "exec 2>&1 </dev/null; timeout " + std::to_string(seconds) + " " + command;
    ProgramResult result;
    FILE* pipe = ::popen(line.c_str(), "r");
    if (pipe == nullptr) {
        return result;
    }
    std::array<char, 4096> block;
    for (size_t size = 0; (size = std::fread(block.data(), 1, block.size(), pipe)) > 0;) {
        result.output.append(block.data(), size);
    }
    const int status = ::pclose(pipe);
    result.exit_code = exit_code_of(status);
    result.cpu_seconds = children_cpu_seconds() - before;
    return result;
}

BackgroundProgram::BackgroundProgram(std::vector<std::string> arguments) {
    std::vector<char*> pointers;
    for (std::string& argument : arguments) {
        pointers.push_back(argument.data());
    }
    pointers.push_back(nullptr);
    const int error =
        ::posix_spawnp(&process_, pointers[0], nullptr, nullptr, pointers.data(), environ);
    if (error != 0) {
        throw std::system_error(error, std::generic_category(), arguments[0]);
    }
}

BackgroundProgram::~BackgroundProgram() {
    if (process_ != -1) {
        ::kill(process_, SIGKILL);
        ::waitpid(process_, nullptr, 0);
    }
}

int BackgroundProgram::terminate(std::chrono::milliseconds limit) {
    ::kill(process_, SIGTERM);
    int status = 0;
    if (!wait_until([&] { return ::waitpid(process_, &status, WNOHANG) == process_; }, limit)) {
        return -1;
    }
    process_ = -1;
    return exit_code_of(status);
}

std::string results_folder() {
    const char* folder = std::getenv("SYSTEM_TEST_RESULTS");
    return folder == nullptr ? "/tmp" : folder;
}

}  // namespace system_test
