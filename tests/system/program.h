// Programs of the guest, run to their end.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <string>
#include <vector>

namespace system_test {

struct ProgramResult {
    int exit_code = -1;      ///< 128 + N when signal N ended it
    std::string output;      ///< standard output and standard error
    double cpu_seconds = 0;  ///< user and system, of all its processes
};

/// Runs a shell command. Killed after `seconds`.
ProgramResult run_program(const std::string& command, int seconds);

/// A program that runs beside the scenario, with its output.
class BackgroundProgram {
  public:
    /// `arguments` begins with the program, which is looked for in PATH.
    /// Throws std::system_error when it cannot be started.
    explicit BackgroundProgram(std::vector<std::string> arguments);
    /// Kills it when it still runs.
    ~BackgroundProgram();
    BackgroundProgram(const BackgroundProgram&) = delete;
    BackgroundProgram& operator=(const BackgroundProgram&) = delete;

    /// Asks it to end (SIGTERM). Its exit code; 128 + N when signal N ended it; -1 when it still
    /// runs after `limit`.
    int terminate(std::chrono::milliseconds limit);

  private:
    pid_t process_ = -1;  ///< -1: has been waited for
};

/// Folder that is brought back to the machine which started the guest.
std::string results_folder();

}  // namespace system_test
