// Programs of the guest, run to their end.
#pragma once

#include <string>

namespace systemtest {

struct ProgramResult {
    int exit_code = -1;      ///< 128 + N when signal N ended it
    std::string output;      ///< standard output and standard error
    double cpu_seconds = 0;  ///< user and system, of all its processes
};

/// Runs a shell command. Killed after `seconds`.
ProgramResult run_program(const std::string& command, int seconds);

/// Folder that is brought back to the machine which started the guest.
std::string results_folder();

}  // namespace systemtest
