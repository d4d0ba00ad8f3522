// Runs camhost as its users do.
#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <vector>

namespace camhost::test {

struct ProcessResult {
    int code = -1;  ///< exit status; 128 + N when signal N ended it
    std::string out;
    std::string err;
};

/// What to do with a running process, once its standard output contains `when`.
struct Interaction {
    std::string when;
    int signal = 0;     ///< to send, or 0
    std::string input;  ///< to write to its standard input, or empty
};

/// Runs a program to its end (after `limit` it is killed and `code` is 137).
/// `environment` entries are NAME=value, added to this process's. Interactions happen in order;
/// standard input is closed after the last. `terminal`: input and output are a pseudo-terminal.
ProcessResult run_process(const std::vector<std::string>& command,
                          const std::vector<std::string>& environment = {},
                          const std::vector<Interaction>& interactions = {}, bool terminal = false,
                          std::chrono::seconds limit = std::chrono::seconds(60));

/// What a program (found by PATH) prints; an exit status other than 0 fails the test.
std::string output_of(std::vector<std::string> command);

}  // namespace camhost::test
