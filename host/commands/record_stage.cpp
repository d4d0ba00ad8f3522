#include "host/commands/record_stage.h"

#include <algorithm>

#include "host/base/text.h"
#include "host/commands/record_verdict.h"
#include "host/pictures/png_file.h"
#include "host/properties/combination.h"
#include "host/recording/report.h"
#include "host/session/property_access.h"

namespace camhost {

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr milliseconds kDefaultStillInterval = seconds(1);

/// The sizes at which the camera carries multiplexed streams. The plug-in has such a list, too, and
/// so has the virtual camera: camhost judges both and shares no code with them, on purpose.
bool multiplexed_size(int width, int height) {
    constexpr Size kSizes[] = {{640, 480}, {160, 120}, {320, 240}, {1280, 720}, {1920, 1080}};
    return std::find(std::begin(kSizes), std::end(kSizes), Size{width, height}) != std::end(kSizes);
}

Stage stage_for(const RecordOptions& options, Selector selector, int number) {
    Stage stage{combination_name(selector, number), number, {}, options.nv12};
    if (const Combination* known = find_combination(selector, number)) {
        stage.carries = known->carries;
    }
    return stage;
}

}  // namespace

Stage named_stage(const RecordOptions& options, const Session& session) {
    const bool by_signal = session.by_signal_type();
    const std::string& wanted = by_signal ? options.signal : options.video_mode;
    const std::string& other = by_signal ? options.video_mode : options.signal;
    if (!other.empty()) {
        throw Failure(ExitCode::kRefused,
                      by_signal ? "this television selects by signal type: use --signal"
                                : "this television selects by video mode: use --video-mode");
    }
    const Selector selector = session.selector();
    if (!wanted.empty()) {
        return stage_for(options, selector, parse_combination(selector, wanted));
    }
    const auto current = by_signal ? session.get(CAM_PROPERTY_SIGNAL_TYPE) : std::nullopt;
    Stage stage = current ? stage_for(options, selector, current->value)
                          : Stage{"recording", {}, {}, options.nv12};
    stage.number.reset();
    return stage;
}

std::vector<Stage> tour_stages(const RecordOptions& options, const Session& session) {
    const Selector selector = session.selector();
    std::vector<Stage> tour;
    for (const Combination& each : combinations(selector)) {
        if (selector == Selector::kSignalType && each.number == CAM_SIGNAL_H264_GRAY_JPEG) {
            continue;  // The plug-in makes CAM_SIGNAL_H264_GRAY_SI of it.
        }
        tour.push_back(stage_for(options, selector, each.number));
        // NV12 comes on top of a combination; two H.264 streams are where a call would use it.
        tour.back().nv12 = options.nv12 || each.carries.count(Stream::kH264Sub) > 0;
    }
    return tour;
}

void StageRecorder::change(CAM_PROPERTY property, const CAM_PROP_VALUE& value) {
    const SetOutcome outcome = set_property(session_, {find_property(property), value});
    if (outcome.result == SetOutcome::Result::kRefused) {
        // The same picture size again is refused too, and harmless.
        const auto current = session_.get(property);
        if (current && current->value == value.value) {
            return;
        }
        setting_refused_ = true;
        console_.line("  " + outcome.sentence);
    } else if (outcome.result == SetOutcome::Result::kIgnored) {
        console_.line("  " + outcome.sentence);
    }
}

void StageRecorder::apply_general_settings() {
    if (options_.size) {
        change(CAM_PROPERTY_DIMENSION, *options_.size);
    }
    if (options_.fps) {
        change(CAM_PROPERTY_FRAMERATE, {.value = *options_.fps});
    }
    if (options_.bitrate) {
        change(CAM_PROPERTY_BITRATE, {.value = *options_.bitrate});
    }
    advise_on_size();
}

void StageRecorder::advise_on_size() {
    const auto size = session_.get(CAM_PROPERTY_DIMENSION);
    if (size && !multiplexed_size(size->res[0], size->res[1])) {
        console_.line(
            format("note: for %dx%d the camera falls back to plain MJPEG, which carries "
                   "no multiplexed streams: expect no video records",
                   size->res[0], size->res[1]));
    }
}

milliseconds StageRecorder::still_interval(const Stage& stage) const {
    if (!session_.by_signal_type()) {
        return milliseconds(0);
    }
    if (options_.jpeg_interval) {
        return *options_.jpeg_interval;
    }
    // By signal type a JPEG passes only when a still was asked for, even a continuous one.
    return stage.carries.count(Stream::kJpeg) > 0 ? kDefaultStillInterval : milliseconds(0);
}

RecordingPlan StageRecorder::plan_for(const Stage& stage) const {
    RecordingPlan plan;
    plan.name = stage.name;
    plan.streams = options_.streams;
    plan.duration = recording_duration(options_);
    plan.jpeg_interval = still_interval(stage);
    plan.changes = options_.changes;
    plan.queue_limits.bytes = options_.queue_bytes;
    return plan;
}

/// What must arrive when the recording is complete.
StreamSet StageRecorder::expected(const Stage& stage, const RecordingPlan& plan) const {
    StreamSet streams = stage.carries;
    if (stage.nv12) {
        streams.insert(Stream::kNv12);
    }
    if (session_.by_signal_type() && plan.jpeg_interval.count() == 0) {
        streams.erase(Stream::kJpeg);
    }
    return streams;
}

void StageRecorder::choose(const Stage& stage) {
    if (stage.number) {
        change(property_of(session_.selector()), {.value = *stage.number});
    }
    if (stage.nv12) {
        change(CAM_PROPERTY_NV12_MODE_CONTROL, {.value = 1});
    }
}

RecordingResult StageRecorder::run(const Stage& stage, const RecordingPlan& plan,
                                   const std::filesystem::path& folder) {
    choose(stage);
    RecordingResult recording = run_recording(session_, plan, folder, controls_);
    if (stage.nv12 && !session_.lost()) {
        change(CAM_PROPERTY_NV12_MODE_CONTROL, {.value = 0});
    }
    return recording;
}

void StageRecorder::show(const RecordingResult& recording, const StreamSet& expected) {
    console_.line(format("  %s after %.1f s", words_for(recording.end), recording.seconds));
    print_report(console_, recording);
    const StreamSet silent = silent_streams(recording, expected);
    if (recording.end == RecordingResult::End::kComplete && !silent.empty()) {
        console_.line("  note: nothing arrived of " + labels(silent) +
                      ", which this combination carries");
    }
    controls_.show_requests();
}

StageResult StageRecorder::record(const Stage& stage, const std::filesystem::path& folder) {
    std::filesystem::create_directories(folder);
    console_.line();
    console_.line(stage.name + " -> " + folder.string() + "/");
    const RecordingPlan plan = plan_for(stage);
    StageResult result;
    result.recording = run(stage, plan, folder);
    show(result.recording, expected(stage, plan));
    result.tiles = contact_sheet_tiles(result.recording);
    if (!result.tiles.empty()) {
        write_png(folder / "contact-sheet.png", make_contact_sheet(result.tiles));
    }
    result.code = verdict_on(result.recording, setting_refused_, session_, controls_);
    return result;
}

}  // namespace camhost
