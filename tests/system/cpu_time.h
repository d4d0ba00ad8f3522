// What something costs in the guest.
#pragma once

#include <cstddef>
#include <string>

namespace system_test {

/// Processor time in seconds.
struct CpuTime {
    double own = 0;    ///< of one program, all its threads
    double guest = 0;  ///< of the whole guest, kernel threads and interrupts included
};

CpuTime operator-(const CpuTime& a, const CpuTime& b);

/// So far: of this process, and of the guest since it was booted.
CpuTime cpu_time();

/// Of a shell command from its start to its end, which must be a good one within so many seconds.
CpuTime cost_of(const std::string& command, int seconds = 60);

/// A line for the report.
std::string per_frame(const std::string& who, const CpuTime& total, size_t frames);

}  // namespace system_test
