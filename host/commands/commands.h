// The commands of camhost. Each returns what the process exits with; failures that end a command
// early are thrown as Failure.
#pragma once

#include "host/base/exit_code.h"
#include "host/commands/options.h"

namespace camhost {

ExitCode run_record(const Options& options);
ExitCode run_check(const Options& options);
ExitCode run_get(const Options& options);
ExitCode run_set(const Options& options);
ExitCode run_list(const Options& options);
ExitCode run_capabilities(const Options& options);
ExitCode run_shell(const Options& options);
ExitCode run_scenario(const Options& options);
ExitCode run_snapshot(const Options& options);
ExitCode run_watch(const Options& options);
ExitCode run_trace(const Options& options);

/// Where the plug-in's log goes for commands that make no folder: to --log, or nowhere.
std::filesystem::path log_of(const CommonOptions& options);

}  // namespace camhost
