#include "tests/system/program.h"

#include <sys/resource.h>
#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <cstdlib>

namespace systemtest {
namespace {

double children_cpu_seconds() {
    rusage usage{};
    ::getrusage(RUSAGE_CHILDREN, &usage);
    const auto seconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
    };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
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
    result.exit_code = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    result.cpu_seconds = children_cpu_seconds() - before;
    return result;
}

std::string results_folder() {
    const char* folder = std::getenv("SYSTEM_TEST_RESULTS");
    return folder == nullptr ? "/tmp" : folder;
}

}  // namespace systemtest
