// The command line, read.
#pragma once

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "host/recording/recording_run.h"
#include "host/streams/stream.h"

namespace camhost {

enum class Command {
    kRecord,
    kCheck,
    kGet,
    kSet,
    kList,
    kCapabilities,
    kShell,
    kScenario,
    kSnapshot,
    kWatch,
    kTrace
};

/// What every command takes.
struct CommonOptions {
    std::filesystem::path plugin;               ///< empty: the one near the program
    std::optional<std::string> virtual_camera;  ///< file, JSON text or preset; empty text: boot
    std::filesystem::path virtual_bus;          ///< folder of the substitute libusb; empty: find it
    std::filesystem::path log;  ///< empty: plugin.log in the output folder, or nowhere
    std::chrono::milliseconds init_timeout{60'000};
    bool trace_usb = false;
    std::filesystem::path pcap;  ///< capture of the virtual bus; empty: none
    bool pcap_payloads = false;
};

struct RecordOptions {
    std::optional<std::chrono::milliseconds> duration;
    StreamSet streams;
    std::optional<CAM_PROP_VALUE> size;
    std::string signal;  ///< as typed; empty when not given
    std::string video_mode;
    bool nv12 = false;
    std::optional<std::chrono::milliseconds> jpeg_interval;
    std::optional<int> fps;
    std::optional<int> bitrate;
    std::filesystem::path output{"out"};
    bool tour = false;
    std::filesystem::path json;
    std::vector<ScheduledChange> changes;
    size_t queue_bytes = RecordQueue::Limits().bytes;
    int takes = 1;  ///< recordings of the same combination, one after the other
};

/// How long each recording lasts.
std::chrono::milliseconds recording_duration(const RecordOptions& options);

struct CheckOptions {
    bool list = false;
    std::vector<std::string> only;  ///< empty: all
    std::filesystem::path junit;
    bool interactive = false;
};

struct WatchOptions {
    bool json = false;
};

struct ScenarioOptions {
    enum class Action { kList, kShow, kRun };
    Action action = Action::kList;
    std::vector<std::string> names;  ///< run: none means all
    std::filesystem::path folder;    ///< of the scenarios; empty: the one of the source tree
    bool check = false;              ///< run: with the checks that should find the fault
    std::filesystem::path keep;      ///< keeps what the runs leave; empty: nowhere
    std::filesystem::path json;
};

struct Options {
    Command command = Command::kRecord;
    CommonOptions common;
    RecordOptions record;  ///< record and check (its output folder)
    CheckOptions check;
    WatchOptions watch;
    ScenarioOptions scenario;
    std::vector<std::string> words;  ///< get: names; set: assignments
};

/// Reads the command line. Prints help and ends the process with 0 when it was asked for; throws
/// Failure (kUsage) with the whole message when something is wrong.
Options parse_arguments(int argc, char** argv);

}  // namespace camhost
