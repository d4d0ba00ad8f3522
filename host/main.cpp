#include <exception>
#include <iostream>

#include "host/commands/commands.h"
#include "host/commands/surroundings.h"
#include "host/commands/virtual_camera.h"

namespace camhost {
namespace {

ExitCode run_command(const Options& options) {
    switch (options.command) {
        case Command::kRecord:
            return run_record(options);
        case Command::kCheck:
            return run_check(options);
        case Command::kGet:
            return run_get(options);
        case Command::kSet:
            return run_set(options);
        case Command::kList:
            return run_list(options);
        case Command::kCapabilities:
            return run_capabilities(options);
        case Command::kShell:
            return run_shell(options);
        case Command::kScenario:
            return run_scenario(options);
        case Command::kSnapshot:
            return run_snapshot(options);
        case Command::kWatch:
            return run_watch(options);
        case Command::kTrace:
            return run_trace(options);
    }
    return ExitCode::kUsage;
}

int run(int argc, char** argv) {
    const Options options = parse_arguments(argc, argv);
    if (options.common.virtual_camera && !in_television_surroundings()) {
        virtual_bus_folder(options.common);  // what was typed wrong is told first
        return run_in_sandbox(argv);
    }
    if (options.common.virtual_camera && !on_virtual_bus()) {
        std::filesystem::path status;
        if (!options.record.output.empty() && options.command == Command::kRecord) {
            std::filesystem::create_directories(options.record.output);
            status = options.record.output / "camera-status.json";
        }
        restart_on_virtual_bus(options.common, status, argv);
    }
    return static_cast<int>(run_command(options));
}

}  // namespace
}  // namespace camhost

int main(int argc, char** argv) {
    auto code = static_cast<int>(camhost::ExitCode::kFailed);
    try {
        code = camhost::run(argc, argv);
    } catch (const camhost::Failure& failure) {
        std::cerr << "camhost: " << failure.what() << '\n';
        code = static_cast<int>(failure.code());
    } catch (const std::exception& error) {
        std::cerr << "camhost: " << error.what() << '\n';
    }
    return code;
}
