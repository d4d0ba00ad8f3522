#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdlib>
#include <iostream>

#include "host/base/exit_code.h"
#include "host/base/nearest_name.h"
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
    std::optional<int> fps;
    std::optional<int> bitrate;
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
        ->check(CLI::ExistingFile)
        ->type_name("FILE");
    command
        ->add_option("--virtual", typed->virtual_camera,
                     "use a virtual camera: a JSON file, JSON text, or boot, running, missing, "
                     "never-returns, old-boot, unplug-at-3s (default boot)")
        ->expected(0, 1)
        ->type_name("[CONFIG]");
    command
        ->add_option("--virtual-bus", common->virtual_bus,
                     "folder of the substitute libusb (default: the one of this build)")
        ->type_name("DIR");
    command->add_option("--log", common->log, "file for what the plug-in logs")->type_name("FILE");
    command
        ->add_option("--init-timeout", typed->init_timeout,
                     "how long to wait for the camera (default 60s)")
        ->type_name("TIME");
    command->add_flag("--trace-usb", common->trace_usb,
                      "with --virtual: print each control transfer, decoded");
}

/// What is streamed, and how long.
void add_combination(CLI::App* command, RecordOptions* record, Typed* typed) {
    command->add_option("--duration", typed->duration, "how long")->type_name("TIME");
    auto* signal = command
                       ->add_option("--signal", record->signal,
                                    "combination of streams, name or number, on televisions "
                                    "that select by signal type")
                       ->type_name("NAME");
    command
        ->add_option("--video-mode", record->video_mode,
                     "the same on televisions that select by video mode")
        ->excludes(signal)
        ->type_name("NAME");
    command->add_flag("--nv12", record->nv12, "add NV12 pictures to the combination");
}

void add_record(CLI::App* command, RecordOptions* record, Typed* typed) {
    add_combination(command, record, typed);
    command->get_option("--duration")
        ->description("how long to record (default 5s, with --tour 3s for each)");
    command
        ->add_option("--streams", typed->streams,
                     "main,sub,jpeg,gray,yuy2,nv12,nv21,pcm or all (default all)")
        ->type_name("LIST");
    command->add_option("--size", typed->size, "picture size, such as 1280x720")->type_name("WxH");
    command
        ->add_option("--jpeg-every", typed->jpeg_every,
                     "trigger a still so often; 0: never (default 1s where the combination "
                     "sends stills only when asked)")
        ->type_name("TIME");
    command->add_option("--fps", typed->fps, "frame rate of the main H.264 stream")->type_name("N");
    command->add_option("--bitrate", typed->bitrate, "its bit rate in bit/s")->type_name("N");
    command->add_option("--output", record->output, "folder for the files (default out)")
        ->type_name("DIR");
    command->add_option("--takes", record->takes, "recordings, one after the other (default 1)")
        ->check(CLI::Range(1, 1000))
        ->type_name("N");
    command->add_flag("--tour", record->tour,
                      "record every combination in turn, each into its own folder");
    command->add_option("--json", record->json, "write the figures to this file as well")
        ->type_name("FILE");
    command
        ->add_option("--set", typed->changes,
                     "change a property while recording: PROPERTY=VALUE@TIME; may be repeated")
        ->allow_extra_args(false)
        ->type_name("PROPERTY=VALUE@TIME");
    command
        ->add_option("--queue-mib", typed->queue_mib,
                     "memory for records that wait for the disk, in MiB (default 64)")
        ->check(CLI::Range(1, 4096))
        ->type_name("N");
}

void understand_common(const CLI::App& command, const Typed& typed, CommonOptions* common) {
    common->init_timeout = duration_of("--init-timeout", typed.init_timeout);
    if (command.count("--virtual") > 0) {
        common->virtual_camera = typed.virtual_camera;
    }
    if (common->trace_usb && !common->virtual_camera) {
        throw Failure(ExitCode::kUsage, "the trace is the virtual bus's: it needs --virtual");
    }
}

void understand_record(const Typed& typed, RecordOptions* record) {
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
    record->fps = typed.fps;
    record->bitrate = typed.bitrate;
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

/// The program's commands, as they are added.
class Subcommands {
  public:
    Subcommands(CLI::App* app, Options* options, Typed* typed)
        : app_(app), options_(options), typed_(typed) {
        add_recording();
        add_properties();
        add_tools();
        for (const Subcommand& each : all_) {
            if (each.command != Command::kScenario) {
                add_common(each.parser, &options_->common, typed_);
            }
        }
    }

    std::vector<std::string> names() const {
        std::vector<std::string> names;
        for (const Subcommand& each : all_) {
            names.push_back(each.parser->get_name());
        }
        return names;
    }
    const Subcommand& chosen() const {
        return *std::find_if(all_.begin(), all_.end(),
                             [](const auto& each) { return each.parser->parsed(); });
    }

  private:
    CLI::App* add(Command command, const char* name, const char* purpose, const char* example) {
        all_.push_back({command, app_->add_subcommand(name, purpose)});
        all_.back().parser->footer(std::string("Example:\n  camhost ") + example);
        return all_.back().parser;
    }
    void add_recording();
    void add_properties();
    void add_tools();
    void add_scenario();
    void add_scenario_run(CLI::App* parser);

    CLI::App* app_;
    Options* options_;
    Typed* typed_;
    std::vector<Subcommand> all_;
};

void Subcommands::add_recording() {
    add_record(add(Command::kRecord, "record", "record streams into files",
                   "record --virtual --signal h264-h264-gray --duration 10s"),
               &options_->record, typed_);
    CLI::App* check = add(Command::kCheck, "check", "put the camera through its acceptance test",
                          "check --virtual --junit check.xml");
    check->add_option("--output", typed_->check_output, "keep the files in this folder")
        ->type_name("DIR");
    check->add_flag("--list", options_->check.list, "show the checks instead of running them");
    check->add_option("--only", options_->check.only, "run these checks alone")->type_name("NAME");
    check->add_option("--junit", options_->check.junit, "write the results to this file as well")
        ->type_name("FILE");
    check->add_flag("--interactive", options_->check.interactive,
                    "with the checks that need a hand at the cable");
    add(Command::kSnapshot, "snapshot", "take one still", "snapshot still.jpg --virtual")
        ->add_option("file", options_->words, "where the JPEG picture goes")
        ->required()
        ->expected(1)
        ->type_name("FILE");
}

void Subcommands::add_properties() {
    add(Command::kGet, "get", "read properties", "get --virtual=running bitrate lux")
        ->add_option("property", options_->words, "names, see camhost list")
        ->required()
        ->type_name("NAME");
    add(Command::kSet, "set", "set properties", "set --virtual=running mirror=on zoom=3")
        ->add_option("assignment", options_->words, "PROPERTY=VALUE")
        ->required()
        ->type_name("PROPERTY=VALUE");
    add(Command::kList, "list", "show all properties", "list --virtual=running");
    add(Command::kCapabilities, "capabilities", "show what the camera offers",
        "capabilities --virtual=running");
}

void Subcommands::add_tools() {
    add(Command::kShell, "shell", "set, read and record interactively", "shell --virtual");
    CLI::App* watch = add(Command::kWatch, "watch", "show the streams as they run",
                          "watch --virtual --signal h264-gray");
    add_combination(watch, &options_->record, typed_);
    watch->add_flag("--json", options_->watch.json, "one JSON object a second instead of a table");
    CLI::App* trace =
        add(Command::kTrace, "trace", "show what a start, a recording and a stop ask of the camera",
            "trace --virtual --pcap camera.pcap");
    add_combination(trace, &options_->record, typed_);
    trace->add_option("--pcap", options_->common.pcap, "write the traffic for Wireshark, too")
        ->type_name("FILE");
    trace->add_flag("--payloads", options_->common.pcap_payloads,
                    "with the data of pictures and sound");
    add_scenario();
}

void Subcommands::add_scenario() {
    CLI::App* scenario = add(Command::kScenario, "scenario",
                             "let something go wrong with a virtual camera, and judge what follows",
                             "scenario run payload-lost");
    scenario->require_subcommand(1);
    scenario
        ->add_option("--scenarios", options_->scenario.folder,
                     "folder of the scenarios (default: those of this build)")
        ->check(CLI::ExistingDirectory)
        ->type_name("DIR");
    using Action = ScenarioOptions::Action;
    const auto add_action = [&](Action action, const char* name, const char* purpose,
                                const std::string& example) {
        CLI::App* parser = scenario->add_subcommand(name, purpose);
        parser->callback([this, action] { options_->scenario.action = action; });
        parser->footer("Example:\n  camhost scenario " + example);
        return parser;
    };
    add_action(Action::kList, "list", "names and titles", "list");
    add_action(Action::kShow, "show", "what happens, in words and as rules", "show payload-lost")
        ->add_option("name", options_->scenario.names, "see camhost scenario list")
        ->required()
        ->type_name("NAME");
    add_scenario_run(
        add_action(Action::kRun, "run", "run and judge", "run unplug-while-streaming"));
}

void Subcommands::add_scenario_run(CLI::App* parser) {
    ScenarioOptions& scenario = options_->scenario;
    parser->add_option("name", scenario.names, "see camhost scenario list (default: all)")
        ->type_name("NAME");
    parser->add_flag("--check", scenario.check,
                     "also see whether camhost check finds the fault, where it should");
    parser->add_option("--keep", scenario.keep, "keep what each run leaves in this folder")
        ->type_name("DIR");
    parser->add_option("--json", scenario.json, "write the results to this file as well")
        ->type_name("FILE");
    parser->add_option("--plugin", options_->common.plugin, "the plug-in")
        ->check(CLI::ExistingFile)
        ->type_name("FILE");
    parser
        ->add_option("--virtual-bus", options_->common.virtual_bus,
                     "folder of the substitute libusb")
        ->type_name("DIR");
}

/// A word that should be a command and is none.
void check_command(const std::vector<std::string>& names, int argc, char** argv) {
    if (argc < 2 || argv[1][0] == '-' ||
        std::find(names.begin(), names.end(), argv[1]) != names.end()) {
        return;
    }
    throw Failure(ExitCode::kUsage, std::string("there is no command '") + argv[1] + "'" +
                                        suggestion(argv[1], names) + " (camhost --help)");
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
    const Subcommands subcommands(&app, &options, &typed);
    check_command(subcommands.names(), argc, argv);
    parse(&app, argc, argv);
    const Subcommand& chosen = subcommands.chosen();
    options.command = chosen.command;
    if (options.command == Command::kScenario) {
        return options;
    }
    options.common.trace_usb |= options.command == Command::kTrace;
    understand_common(*chosen.parser, typed, &options.common);
    if (options.command == Command::kRecord || options.command == Command::kWatch ||
        options.command == Command::kTrace) {
        understand_record(typed, &options.record);
    } else {
        options.record.output = typed.check_output;
    }
    return options;
}

}  // namespace camhost
