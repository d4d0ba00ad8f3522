#include "host/acceptance/check.h"
#include "host/base/exit_code.h"
#include "host/base/text.h"
#include "host/properties/combination.h"
#include "host/session/property_access.h"

namespace camhost {

namespace {
constexpr std::chrono::milliseconds kReferenceDuration{2500};
}

CheckResult passed_if(bool good, std::string measured) {
    return {good ? CheckResult::Verdict::kPass : CheckResult::Verdict::kFail, std::move(measured)};
}

CheckResult skipped(std::string why) {
    return {CheckResult::Verdict::kSkip, std::move(why)};
}

CheckResult not_started(const std::optional<LoggedFaults>& logged) {
    const std::string why = logged ? join(logged->start) : "";
    return passed_if(false, "recording could not be started" + (why.empty() ? "" : ": " + why));
}

const char* words_for(CheckResult::Verdict verdict) {
    switch (verdict) {
        case CheckResult::Verdict::kPass:
            return "PASS";
        case CheckResult::Verdict::kFail:
            return "FAIL";
        case CheckResult::Verdict::kSkip:
            break;
    }
    return "SKIP";
}

const Combination& richest(Selector selector) {
    return selector == Selector::kSignalType
               ? *find_combination(selector, CAM_SIGNAL_H264_H264_GRAY)
               : *find_combination(selector, CAM_VIDEO_H264_H264);
}

const Combination& with_stills(Selector selector) {
    return selector == Selector::kSignalType ? *find_combination(selector, CAM_SIGNAL_H264_GRAY_SI)
                                             : *find_combination(selector, CAM_VIDEO_H264_JPEG);
}

CheckBench::CheckBench(Session& camera, const Controls& with, std::filesystem::path place,
                       const std::filesystem::path& log, int version, bool person)
    : session(camera),
      controls(with),
      folder(std::move(place)),
      plugin_version(version),
      interactive(person),
      log_(log) {
    const auto level = session.get(CAM_PROPERTY_DEBUG_LEVEL);
    if (level && level->value < PluginLog::kLevel &&
        set(CAM_PROPERTY_DEBUG_LEVEL, PluginLog::kLevel)) {
        log_level_ = level->value;
    }
}

CheckBench::~CheckBench() {
    if (log_level_ > 0) {
        set(CAM_PROPERTY_DEBUG_LEVEL, log_level_);
    }
}

void CheckBench::stop_if_over() const {
    if (session.lost()) {
        throw Failure(ExitCode::kCameraLost, "the camera went away: " + session.loss());
    }
    if (controls.interrupt.requested()) {
        throw Failure(ExitCode::kInterrupted, "interrupted");
    }
}

void CheckBench::choose(int combination) {
    set_property(session, {find_property(property_of(session.selector())), {.value = combination}});
}

bool CheckBench::set(CAM_PROPERTY property, int value) {
    CAM_PROP_VALUE wanted{.value = value};
    return session.set(property, &wanted);
}

CheckedRecording CheckBench::record(const std::string& name, int combination,
                                    std::chrono::milliseconds duration,
                                    std::chrono::milliseconds still_interval) {
    choose(combination);
    const auto place = folder / name;
    std::filesystem::create_directories(place);
    RecordingPlan plan;
    plan.name = name;
    plan.streams = every_stream();
    plan.duration = duration;
    plan.jpeg_interval = still_interval;
    log_.news();
    CheckedRecording result{run_recording(session, plan, place, controls), {}};
    if (const auto news = log_.news()) {
        result.logged = faults_in(*news);
    }
    stop_if_over();
    return result;
}

std::optional<CheckResult> CheckBench::start() {
    log_.news();
    if (session.start()) {
        return std::nullopt;
    }
    session.stop();
    stop_if_over();
    const auto news = log_.news();
    return not_started(news ? std::optional(faults_in(*news)) : std::nullopt);
}

const CheckedRecording& CheckBench::reference() {
    if (!reference_) {
        reference_ = record("reference", richest(session.selector()).number, kReferenceDuration);
    }
    return *reference_;
}

}  // namespace camhost
