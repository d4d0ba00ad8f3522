// The acceptance test of a camera: named checks, each with what it measured.
#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "host/acceptance/plugin_log.h"
#include "host/recording/recording_run.h"
#include "host/session/session.h"

namespace camhost {

struct CheckResult {
    enum class Verdict { kPass, kFail, kSkip };
    Verdict verdict = Verdict::kPass;
    std::string measured;  ///< what was measured, or what is wrong; for people
};

CheckResult passed_if(bool good, std::string measured);
CheckResult skipped(std::string why);
/// @param logged what the plug-in logged about it.
CheckResult not_started(const std::optional<LoggedFaults>& logged);

/// A recording, and what the plug-in logged meanwhile.
struct CheckedRecording : RecordingResult {
    std::optional<LoggedFaults> logged;  ///< nothing when the log cannot be read
};

/// What the checks work with: while it lives, the plug-in's log tells of the streams. All calls on
/// the controlling thread.
class CheckBench {
  public:
    /// @param log the plug-in's.
    /// @param version what cam_version answered.
    /// @param person somebody is there to pull the cable.
    CheckBench(Session& camera, const Controls& with, std::filesystem::path place,
               const std::filesystem::path& log, int version, bool person);
    /// Puts the log's level back.
    ~CheckBench();
    CheckBench(const CheckBench&) = delete;
    CheckBench& operator=(const CheckBench&) = delete;

    /// Records all streams of a combination into a folder of its own. Throws Failure: kInterrupted
    /// on Ctrl-C, kCameraLost when the camera goes.
    CheckedRecording record(const std::string& name, int combination,
                            std::chrono::milliseconds duration,
                            std::chrono::milliseconds still_interval = {});
    /// Two seconds of the combination with the most kinds of stream; recorded once.
    const CheckedRecording& reference();
    /// Starts recording for observers; why it could not be started, or nothing.
    std::optional<CheckResult> start();
    /// Chooses a combination without recording.
    void choose(int combination);
    bool set(CAM_PROPERTY property, int value);
    void stop_if_over() const;

    Session& session;
    const Controls& controls;
    const std::filesystem::path folder;
    const int plugin_version;
    const bool interactive;

  private:
    std::optional<CheckedRecording> reference_;
    PluginLog log_;
    int log_level_ = 0;  ///< that it had; 0: unknown
};

struct Check {
    std::string name;
    std::string what;  ///< what a good camera does
    std::function<CheckResult(CheckBench&)> run;
};

/// All checks for a television that selects this way, in the order in which they run. "found" is
/// not among them: the bench is made of a camera that was.
std::vector<Check> all_checks(Selector selector);

/// The combination with the most kinds of stream in it.
const Combination& richest(Selector selector);
/// The one that sends stills on request.
const Combination& with_stills(Selector selector);

const char* words_for(CheckResult::Verdict verdict);

}  // namespace camhost
