#include <exception>
#include <iostream>

#include "host/commands/commands.h"
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
    }
    return ExitCode::kUsage;
}

ExitCode run(int argc, char** argv) {
    const Options options = parse_arguments(argc, argv);
    if (options.common.virtual_camera && !on_virtual_bus()) {
        std::filesystem::path status;
        if (!options.record.output.empty() && options.command == Command::kRecord) {
            std::filesystem::create_directories(options.record.output);
            status = options.record.output / "camera-status.json";
        }
        restart_on_virtual_bus(options.common, status, argv);
    }
    return run_command(options);
}

}  // namespace
}  // namespace camhost

int main(int argc, char** argv) {
    camhost::ExitCode code = camhost::ExitCode::kFailed;
    try {
        code = camhost::run(argc, argv);
    } catch (const camhost::Failure& failure) {
        std::cerr << "camhost: " << failure.what() << '\n';
        code = failure.code();
    } catch (const std::exception& error) {
        std::cerr << "camhost: " << error.what() << '\n';
    }
    return static_cast<int>(code);
}
