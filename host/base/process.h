// Another program, run to its end.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace camhost {

/// Runs `command` (its first word is looked for in PATH unless it has a slash) and returns its exit
/// status; 128 + N when signal N ended it. `output`: file for its standard output and standard
/// error; empty: this program's own. SIGTERM and SIGHUP that reach this program meanwhile are
/// passed on; Ctrl-C reaches both anyway. Throws Failure (kFailed) when it cannot be started.
int run_program(const std::vector<std::string>& command, const std::filesystem::path& output = {});

}  // namespace camhost
