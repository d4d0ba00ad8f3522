#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdlib>
#include <iostream>

#include "host/base/exit_code.h"
#include "host/base/text.h"
#include "host/commands/options.h"
#include "host/properties/combination.h"

namespace camhost {

namespace {

constexpr std::chrono::milliseconds kDefaultDuration{5000};
constexpr std::chrono::milliseconds kTourDuration{3000};

double in_seconds(std::chrono::milliseconds duration) {
    return std::chrono::duration<double>(duration).count();
}

/// Options as typed, before they are understood.
struct Typed {
    std::string init_timeout = "60s";
    std::string duration;
    std::string streams = "all";
    std::string size;
    std::string jpeg_every;
    std::vector<std::string> changes;
    std::string virtual_camera;
    std::filesystem::path check_output;
    int fps = 0;
    int bitrate = 0;
    size_t queue_mib = 64;
};

std::string footer() {
    std::string text = "Exit codes:\n";
    for (const ExitCodeRow& row : kExitCodes) {
        text += format("  %3d  %s\n", static_cast<int>(row.code), row.meaning);
    }
    return text;
}

std::chrono::milliseconds duration_of(const char* option, const std::string& text) {
    std::chrono::milliseconds duration{};
    if (!parse_duration(text, &duration)) {
        throw Failure(ExitCode::kUsage, std::string(option) + ": '" + text +
                                            "' is no duration; write 3, 3s or 500ms");
    }
    return duration;
}

/// Reads PROPERTY=VALUE@TIME.
ScheduledChange change_of(const std::string& text) {
    const size_t at = text.rfind('@');
    if (at == std::string::npos) {
        throw Failure(ExitCode::kUsage,
                      "--set " + text + ": the time is missing; write PROPERTY=VALUE@3s");
    }
    return {duration_of("--set", text.substr(at + 1)), parse_assignment(text.substr(0, at))};
}

void check_change_times(const RecordOptions& record) {
    const auto duration = recording_duration(record);
    for (const ScheduledChange& change : record.changes) {
        if (change.at >= duration) {
            throw Failure(ExitCode::kUsage,
                          format("--set %s@%gs: recording ends after %gs, so it would never be "
                                 "applied; choose an earlier time or a longer --duration",
                                 change.assignment.property.name, in_seconds(change.at),
                                 in_seconds(duration)));
        }
    }
}

void add_common(CLI::App* command, CommonOptions* common, Typed* typed) {
    command->add_option("--plugin", common->plugin, "the plug-in (default: the one of this build)")
        ->check(CLI::ExistingFile);
    command
        ->add_option("--virtual", typed->virtual_camera,
                     "use a virtual camera: a JSON file, JSON text, or boot, running, missing, "
                     "never-returns, old-boot, unplug-at-3s (default boot)")
        ->expected(0, 1)
        ->type_name("[CONFIG]");
    command->add_option("--virtual-bus", common->virtual_bus,
                        "folder of the substitute libusb (default: the one of this build)");
    command->add_option("--log", common->log, "file for what the plug-in logs");
    command->add_option("--init-timeout", typed->init_timeout,
                        "how long to wait for the camera (default 60s)");
    command->add_flag("--trace-usb", common->trace_usb,
                      "with --virtual: print each control transfer, decoded");
}

void add_record(CLI::App* command, RecordOptions* record, Typed* typed) {
    command->add_option("--duration", typed->duration,
                        "how long to record (default 5s, with --tour 3s for each)");
    command->add_option("--streams", typed->streams,
                        "main,sub,jpeg,gray,yuy2,nv12,nv21,pcm or all (default all)");
    command->add_option("--size", typed->size, "picture size, such as 1280x720");
    auto* signal = command->add_option("--signal", record->signal,
                                       "combination of streams, name or number, on televisions "
                                       "that select by signal type");
    command
        ->add_option("--video-mode", record->video_mode,
                     "the same on televisions that select by video mode")
        ->excludes(signal);
    command->add_flag("--nv12", record->nv12, "add NV12 pictures to the combination");
    command->add_option("--jpeg-every", typed->jpeg_every,
                        "trigger a still so often; 0: never (default 1s where the combination "
                        "sends stills only when asked)");
    command->add_option("--fps", typed->fps, "frame rate of the main H.264 stream");
    command->add_option("--bitrate", typed->bitrate, "its bit rate in bit/s");
    command->add_option("--output", record->output, "folder for the files (default out)");
    command->add_flag("--tour", record->tour,
                      "record every combination in turn, each into its own folder");
    command->add_option("--json", record->json, "write the figures to this file as well");
    command
        ->add_option("--set", typed->changes,
                     "change a property while recording: PROPERTY=VALUE@TIME; may be repeated")
        ->allow_extra_args(false);
    command
        ->add_option("--queue-mib", typed->queue_mib,
                     "memory for records that wait for the disk, in MiB (default 64)")
        ->check(CLI::Range(1, 4096));
}

void understand_common(const CLI::App& command, const Typed& typed, CommonOptions* common) {
    common->init_timeout = duration_of("--init-timeout", typed.init_timeout);
    if (command.count("--virtual") > 0) {
        common->virtual_camera = typed.virtual_camera;
    }
    if (common->trace_usb && !common->virtual_camera) {
        throw Failure(ExitCode::kUsage, "--trace-usb needs --virtual");
    }
}

void understand_record(const CLI::App& command, const Typed& typed, RecordOptions* record) {
    record->streams = parse_streams(typed.streams);
    record->queue_bytes = typed.queue_mib << 20;
    if (!typed.duration.empty()) {
        record->duration = duration_of("--duration", typed.duration);
    }
    if (!typed.jpeg_every.empty()) {
        record->jpeg_interval = duration_of("--jpeg-every", typed.jpeg_every);
    }
    if (!typed.size.empty()) {
        record->size = parse_value(find_property("size"), typed.size);
    }
    if (command.count("--fps") > 0) {
        record->fps = typed.fps;
    }
    if (command.count("--bitrate") > 0) {
        record->bitrate = typed.bitrate;
    }
    if (record->tour && !(record->signal.empty() && record->video_mode.empty())) {
        throw Failure(ExitCode::kUsage, "--tour chooses the combinations itself");
    }
    for (const std::string& change : typed.changes) {
        record->changes.push_back(change_of(change));
    }
    std::stable_sort(record->changes.begin(), record->changes.end(),
                     [](const auto& a, const auto& b) { return a.at < b.at; });
    check_change_times(*record);
    // Names are checked before the camera is brought up, which takes seconds.
    if (!record->signal.empty()) {
        parse_combination(Selector::kSignalType, record->signal);
    }
    if (!record->video_mode.empty()) {
        parse_combination(Selector::kVideoMode, record->video_mode);
    }
}

struct Subcommand {
    Command command;
    CLI::App* parser;  ///< owned by the program's parser
};

std::vector<Subcommand> add_subcommands(CLI::App* app, Options* options, Typed* typed) {
    std::vector<Subcommand> all;
    const auto add = [&](Command command, const char* name, const char* purpose) {
        all.push_back({command, app->add_subcommand(name, purpose)});
        return all.back().parser;
    };
    add_record(add(Command::kRecord, "record", "record streams into files"), &options->record,
               typed);
    add(Command::kCheck, "check", "record two seconds and judge the camera")
        ->add_option("--output", typed->check_output, "keep the files in this folder");
    add(Command::kGet, "get", "read properties")
        ->add_option("property", options->words, "names, see camhost list")
        ->required();
    add(Command::kSet, "set", "set properties")
        ->add_option("assignment", options->words, "PROPERTY=VALUE")
        ->required();
    add(Command::kList, "list", "show all properties");
    add(Command::kCapabilities, "capabilities", "show what the camera offers");
    add(Command::kShell, "shell", "set, read and record interactively");
    for (const Subcommand& each : all) {
        add_common(each.parser, &options->common, typed);
    }
    return all;
}

void parse(CLI::App* app, int argc, char** argv) {
    try {
        app->parse(argc, argv);
    } catch (const CLI::Success& help) {
        std::exit(app->exit(help));
    } catch (const CLI::ParseError& error) {
        throw Failure(ExitCode::kUsage, std::string(error.what()) + " (camhost --help)");
    }
}

}  // namespace

std::chrono::milliseconds recording_duration(const RecordOptions& options) {
    return options.duration.value_or(options.tour ? kTourDuration : kDefaultDuration);
}

Options parse_arguments(int argc, char** argv) {
    Options options;
    Typed typed;
    CLI::App app(
        "Plays the television's camera framework: loads the camera plug-in, records its "
        "streams, sets and reads its properties.",
        "camhost");
    app.set_version_flag("--version", "camhost " AITCAM_VERSION, "print the version");
    app.require_subcommand(1);
    app.footer(footer());
    const auto subcommands = add_subcommands(&app, &options, &typed);
    parse(&app, argc, argv);
    const auto chosen = std::find_if(subcommands.begin(), subcommands.end(),
                                     [](const auto& each) { return each.parser->parsed(); });
    options.command = chosen->command;
    understand_common(*chosen->parser, typed, &options.common);
    if (options.command == Command::kRecord) {
        understand_record(*chosen->parser, typed, &options.record);
    } else {
        options.record.output = typed.check_output;
    }
    return options;
}

}  // namespace camhost
