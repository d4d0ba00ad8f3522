// What the plug-in's log tells about the streams, in the field's words.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace camhost {

/// Sentences about what the plug-in logged at level 4 while it streamed. A loss has several sides:
/// a payload that is missing makes a frame too short, and that a gap in the sequence numbers.
struct LoggedFaults {
    std::vector<std::string> start;      ///< requests of a start that failed
    std::vector<std::string> transfers;  ///< transfers that failed, payloads that are not sound
    std::vector<std::string> frames;     ///< frames that are not what their headers say
    std::vector<std::string> sequence;   ///< gaps in the sequence numbers
    unsigned broken_frames = 0;          ///< all that `frames` is about
    unsigned begun_frames = 0;  ///< of them those that begin like one and are then too short
    unsigned dropped_here = 0;  ///< payloads for which the plug-in had no room: a slow machine
};

LoggedFaults faults_in(std::string_view log);

/// The file to which the plug-in's standard output is diverted, read bit by bit. The controlling
/// thread.
class PluginLog {
  public:
    /// The level from which on faults of the streams are logged.
    static constexpr int kLevel = 4;

    explicit PluginLog(std::filesystem::path file) : file_(std::move(file)) {}

    /// What was logged since the last call; nothing when it cannot be read, as on a terminal.
    std::optional<std::string> news();

  private:
    const std::filesystem::path file_;
    std::streamoff read_ = 0;
};

}  // namespace camhost
