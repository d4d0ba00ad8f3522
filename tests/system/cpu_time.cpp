#include "tests/system/cpu_time.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <sstream>

#include "tests/system/program.h"

namespace system_test {
namespace {

double own_cpu_seconds() {
    rusage usage{};
    ::getrusage(RUSAGE_SELF, &usage);
    const auto value = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
    };
    return value(usage.ru_utime) + value(usage.ru_stime);
}

double guest_cpu_seconds() {
    std::ifstream file("/proc/stat");
    std::string label;
    long user = 0, nice = 0, system = 0, idle = 0, iowait = 0, irq = 0, softirq = 0;
    file >> label >> user >> nice >> system >> idle >> iowait >> irq >> softirq;
    return static_cast<double>(user + nice + system + irq + softirq) /
           static_cast<double>(::sysconf(_SC_CLK_TCK));
}

}  // namespace

CpuTime operator-(const CpuTime& a, const CpuTime& b) {
    return {a.own - b.own, a.guest - b.guest};
}

CpuTime cpu_time() {
    return {own_cpu_seconds(), guest_cpu_seconds()};
}

CpuTime cost_of(const std::string& command, int seconds) {
    const double before = guest_cpu_seconds();
    const ProgramResult run = run_program(command, seconds);
    EXPECT_EQ(run.exit_code, 0) << run.output;
    return {run.cpu_seconds, guest_cpu_seconds() - before};
}

std::string per_frame(const std::string& who, const CpuTime& total, size_t frames) {
    // A program that hardly does anything itself has less than the kernel's clock resolves.
    const auto milliseconds = [frames](double time) {
        return std::max(0.0, time) * 1e3 / static_cast<double>(frames);
    };
    std::ostringstream text;
    text.precision(2);
    text << std::fixed << who << ": " << milliseconds(total.own)
         << " ms of its own CPU time per frame, " << milliseconds(total.guest)
         << " ms of the whole guest's, over " << frames << " frames";
    return text.str();
}

}  // namespace system_test
