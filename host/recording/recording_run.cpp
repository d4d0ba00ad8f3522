#include "host/recording/recording_run.h"

#include <algorithm>

#include "host/base/text.h"
#include "host/session/property_access.h"

namespace camhost {

namespace {

using std::chrono::milliseconds;

constexpr milliseconds kProgressInterval{200};
constexpr int kDefaultSampleRate = 16000;

/// What happens between start and stop: changes, still triggers and the progress line, each when
/// it is due.
class Timeline {
  public:
    Timeline(Session& session, Recorder& recorder, const RecordingPlan& plan,
             const Controls& controls)
        : session_(session), recorder_(recorder), plan_(plan), controls_(controls) {}

    RecordingResult::End run();
    double seconds() const { return std::chrono::duration<double>(Clock::now() - begin_).count(); }
    bool change_refused() const { return change_refused_; }

  private:
    Clock::time_point next_due() const;
    void apply_due_changes();
    void apply(const Assignment& assignment);
    void trigger_due_still();
    void show_progress();

    Session& session_;
    Recorder& recorder_;
    const RecordingPlan& plan_;
    const Controls& controls_;
    Clock::time_point begin_ = Clock::now();
    Clock::time_point end_ = begin_ + plan_.duration;
    Clock::time_point next_still_ = begin_ + plan_.jpeg_interval / 2;
    size_t next_change_ = 0;
    bool change_refused_ = false;
};

RecordingResult::End Timeline::run() {
    while (Clock::now() < end_) {
        controls_.wake.wait_until(next_due());
        if (session_.lost()) {
            return RecordingResult::End::kCameraLost;
        }
        if (controls_.interrupt.requested()) {
            return RecordingResult::End::kInterrupted;
        }
        apply_due_changes();
        trigger_due_still();
        show_progress();
    }
    return RecordingResult::End::kComplete;
}

Clock::time_point Timeline::next_due() const {
    auto due = std::min(end_, Clock::now() + kProgressInterval);
    if (next_change_ < plan_.changes.size()) {
        due = std::min(due, begin_ + plan_.changes[next_change_].at);
    }
    if (plan_.jpeg_interval.count() > 0) {
        due = std::min(due, next_still_);
    }
    return due;
}

void Timeline::apply_due_changes() {
    while (next_change_ < plan_.changes.size() &&
           begin_ + plan_.changes[next_change_].at <= Clock::now()) {
        apply(plan_.changes[next_change_].assignment);
        ++next_change_;
    }
}

void Timeline::apply(const Assignment& assignment) {
    if (assignment.property.number == CAM_PROPERTY_SAMPLERATE) {
        recorder_.expect_sample_rate(assignment.value.value == 24000 ? 24000 : kDefaultSampleRate);
    }
    const SetOutcome outcome = set_property(session_, assignment);
    change_refused_ |= outcome.result == SetOutcome::Result::kRefused;
    controls_.console.line(format("  at %5.1f s  ", seconds()) + outcome.sentence);
    controls_.show_requests();
}

void Timeline::trigger_due_still() {
    if (plan_.jpeg_interval.count() == 0 || Clock::now() < next_still_) {
        return;
    }
    CAM_PROP_VALUE none{};
    session_.set(CAM_PROPERTY_TRIGGER_JPEG, &none);
    next_still_ += plan_.jpeg_interval;
}

void Timeline::show_progress() {
    controls_.show_requests();
    const double total = std::chrono::duration<double>(plan_.duration).count();
    const double elapsed = std::min(seconds(), total);
    controls_.console.progress(
        total > 0 ? elapsed / total : 1,
        format("%s  %.1f of %.1f s, %llu records", plan_.name.c_str(), elapsed, total,
               static_cast<unsigned long long>(recorder_.records())));
}

int current_sample_rate(const Session& session) {
    const auto rate = session.get(CAM_PROPERTY_SAMPLERATE);
    return rate && rate->value > 0 ? rate->value : kDefaultSampleRate;
}

}  // namespace

bool RecordingResult::any_records() const {
    return std::any_of(streams.begin(), streams.end(),
                       [](const RecordedStream& each) { return each.figures.records > 0; });
}

RecordingResult run_recording(Session& session, const RecordingPlan& plan,
                              const std::filesystem::path& folder, const Controls& controls) {
    RecordingResult result;
    Recorder recorder(plan.streams, folder, current_sample_rate(session), plan.queue_limits);
    recorder.attach(session.camera());
    if (session.start()) {
        Timeline timeline(session, recorder, plan, controls);
        result.end = timeline.run();
        result.seconds = timeline.seconds();
        result.change_refused = timeline.change_refused();
    } else {
        result.end =
            session.lost() ? RecordingResult::End::kCameraLost : RecordingResult::End::kNotStarted;
    }
    controls.console.progress_done();
    result.stop_confirmed = session.stop();
    recorder.detach();
    result.streams = recorder.finish();
    return result;
}

}  // namespace camhost
