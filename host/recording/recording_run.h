// One recording: start, what happens meanwhile, stop.
#pragma once

#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

#include "host/properties/property_catalog.h"
#include "host/recording/recorder.h"
#include "host/session/controls.h"
#include "host/session/session.h"

namespace camhost {

/// A property to change while recording runs.
struct ScheduledChange {
    std::chrono::milliseconds at{0};  ///< after the start of recording
    Assignment assignment;
};

struct RecordingPlan {
    std::string name;   ///< for the progress line
    StreamSet streams;  ///< to observe
    std::chrono::milliseconds duration{0};
    std::chrono::milliseconds jpeg_interval{0};  ///< between triggered stills; 0: none
    std::vector<ScheduledChange> changes;        ///< in the order of their times
    RecordQueue::Limits queue_limits;
};

struct RecordingResult {
    enum class End { kComplete, kInterrupted, kCameraLost, kNotStarted };
    End end = End::kComplete;
    double seconds = 0;           ///< from the start to the stop of recording
    bool stop_confirmed = false;  ///< what StopRecording answered
    bool change_refused = false;  ///< one of the changes was
    std::vector<RecordedStream> streams;

    bool any_records() const;
};

/// Records into `folder`, which exists. Files are complete when it returns, however it ends.
RecordingResult run_recording(Session& session, const RecordingPlan& plan,
                              const std::filesystem::path& folder, const Controls& controls);

}  // namespace camhost
