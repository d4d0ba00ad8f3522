#include "host/commands/record_verdict.h"

#include <algorithm>

namespace camhost {

namespace {

/// The verdict on a recording that ran to its end.
ExitCode judge_records(const RecordingResult& recording, bool setting_refused) {
    const bool damaged = std::any_of(recording.streams.begin(), recording.streams.end(),
                                     [](const RecordedStream& stream) {
                                         return !stream.error.empty() || stream.figures.dropped > 0;
                                     });
    if (damaged) {
        return ExitCode::kFailed;
    }
    if (!recording.any_records()) {
        return ExitCode::kNoFrames;
    }
    return setting_refused || recording.change_refused ? ExitCode::kRefused : ExitCode::kOk;
}

}  // namespace

ExitCode verdict_on(const RecordingResult& recording, bool setting_refused, const Session& session,
                    const Controls& controls) {
    // Stopping takes a moment, in which the camera may still go away and Ctrl-C be pressed.
    if (recording.end == RecordingResult::End::kCameraLost || session.lost()) {
        return ExitCode::kCameraLost;
    }
    if (recording.end == RecordingResult::End::kInterrupted || controls.interrupt.requested()) {
        return ExitCode::kInterrupted;
    }
    return recording.end == RecordingResult::End::kNotStarted
               ? ExitCode::kFailed
               : judge_records(recording, setting_refused);
}

bool cuts_short(ExitCode code) {
    return code == ExitCode::kCameraLost || code == ExitCode::kInterrupted;
}

StreamSet silent_streams(const RecordingResult& recording, const StreamSet& expected) {
    StreamSet silent;
    for (const RecordedStream& stream : recording.streams) {
        if (stream.figures.records == 0 && expected.count(stream.figures.stream) > 0) {
            silent.insert(stream.figures.stream);
        }
    }
    return silent;
}

}  // namespace camhost
