// virtcam: serves the virtual camera to the kernel of this or another machine.
#include <sys/signalfd.h>

#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdio>
#include <exception>
#include <fstream>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>

#include "virtcam/usbip/bench.h"
#include "virtcam/usbip/importer.h"
#include "virtcam/usbip/server.h"

namespace {

using virtcam::usbip::SocketAddress;
using virtcam::usbip::UniqueFd;

constexpr char kDefaultAddress[] = "127.0.0.1:3240";

struct Options {
    bool usbip = false;
    bool vhci = false;
    std::string listen = kDefaultAddress;
    std::string commands;
    std::string server = kDefaultAddress;
    unsigned port = 0;
    bool runtime = false;
    std::string source;
    std::string config;
    std::string faults;
    std::string status;
};

/// Readable when the process is asked to end. Blocks the signals, so call it before any thread.
UniqueFd stop_signals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    UniqueFd fd(::signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK));
    if (!fd) {
        virtcam::usbip::throw_errno("signalfd");
    }
    return fd;
}

nlohmann::json read_json(const std::string& path) {
    std::ifstream file(path);
    auto content = nlohmann::json::parse(file, nullptr, /*allow_exceptions=*/false);
    if (content.is_discarded()) {
        throw std::invalid_argument("\"" + path + "\" is not JSON");
    }
    return content;
}

virtcam::line::Config configuration(const Options& options) {
    virtcam::line::Config config = virtcam::line::Config::from_file(options.config);
    if (options.runtime) {
        config.camera.identity = virtcam::model::CameraConfig::Identity::kRunTime;
    }
    if (!options.source.empty()) {
        config.camera.source = options.source;
    }
    if (!options.faults.empty()) {
        const nlohmann::json rules = read_json(options.faults);
        if (!rules.is_array()) {
            throw std::invalid_argument("\"" + options.faults + "\" must hold a list of rules");
        }
        config.rules.insert(config.rules.end(), rules.begin(), rules.end());
    }
    return config;
}

void announce(const virtcam::usbip::Server& server, const Options& options) {
    if (options.usbip) {
        std::printf("serving the camera as 1-1 at port %u\n", unsigned{server.port()});
    }
    if (options.vhci) {
        std::printf("attaching the camera to port %u of this machine\n", options.port);
    }
    if (!options.commands.empty()) {
        std::printf("taking commands at port %u\n", unsigned{server.command_port()});
    }
    std::fflush(stdout);
}

void serve(const Options& options) {
    const UniqueFd stop = stop_signals();
    virtcam::usbip::Bench bench(configuration(options));
    virtcam::usbip::ServerOptions how;
    if (options.usbip) {
        how.listen = SocketAddress::parse(options.listen);
    }
    if (options.vhci) {
        how.vhci.emplace(options.port);
    }
    if (!options.commands.empty()) {
        how.commands = SocketAddress::parse(options.commands);
    }
    virtcam::usbip::Server server(bench, std::move(how));
    announce(server, options);
    server.run(stop.get());
    if (!options.status.empty()) {
        std::ofstream file(options.status);
        file << bench.status().dump(2) << '\n';
        if (!file.flush()) {
            throw std::runtime_error("cannot write \"" + options.status + "\"");
        }
    }
}

void attach(const Options& options) {
    const UniqueFd stop = stop_signals();
    virtcam::usbip::Importer importer(SocketAddress::parse(options.server),
                                      virtcam::usbip::VhciPort(options.port));
    importer.run(stop.get());
}

void add_serve(CLI::App& app, Options& options) {
    auto* serve = app.add_subcommand("serve", "be the camera");
    serve->add_flag("--usbip", options.usbip,
                    "offer it to hosts over the network (USB/IP); so it is without --vhci, too");
    serve->add_option("--listen", options.listen, "where (default 127.0.0.1:3240)");
    serve->add_flag("--vhci", options.vhci,
                    "attach it to this machine's kernel (root; module vhci-hcd)");
    serve->add_option("--port", options.port, "port of the virtual host controller (default 0)");
    serve->add_flag("--runtime", options.runtime,
                    "be a camera at once, not a device that waits for its firmware");
    serve->add_option("--source", options.source, "Y4M file to show")->check(CLI::ExistingFile);
    serve->add_option("--config", options.config, "configuration, as for the virtual bus (JSON)")
        ->check(CLI::ExistingFile);
    serve->add_option("--faults", options.faults, "list of scripted failures (JSON)")
        ->check(CLI::ExistingFile);
    serve->add_option("--commands", options.commands,
                      "take commands at this HOST:PORT while serving");
    serve->add_option("--status", options.status, "write the camera's state here at the end");
}

/// Returns the exit status; throws std::exception with a sentence.
int run(int argc, char** argv) {
    Options options;
    CLI::App app("The virtual camera as a USB device of a real kernel.", "virtcam");
    app.set_version_flag("--version", "virtcam " AITCAM_VERSION, "print the version");
    app.require_subcommand(1);
    add_serve(app, options);
    auto* attach_command =
        app.add_subcommand("attach", "attach a served camera to this machine, again and again");
    attach_command->add_option("server", options.server, "HOST:PORT (default 127.0.0.1:3240)");
    attach_command->add_option("--port", options.port,
                               "port of the virtual host controller (default 0)");
    CLI11_PARSE(app, argc, argv);
    if (attach_command->parsed()) {
        attach(options);
    } else {
        options.usbip = options.usbip || !options.vhci;
        serve(options);
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        return run(argc, argv);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "virtcam: %s\n", error.what());
        return 1;
    }
}
