// camhost check: a short recording and a judgement of everything that a host relies on.
#include <algorithm>
#include <functional>
#include <vector>

#include "host/base/temporary_folder.h"
#include "host/base/text.h"
#include "host/commands/commands.h"
#include "host/commands/workbench.h"
#include "host/pictures/annexb.h"
#include "host/properties/combination.h"
#include "host/recording/conformance.h"
#include "host/recording/report.h"
#include "host/session/property_access.h"

namespace camhost {

namespace {

constexpr std::chrono::milliseconds kCheckDuration{2000};
constexpr std::chrono::milliseconds kStillInterval{500};

/// Counts and prints pass and fail lines.
class Verdicts {
  public:
    explicit Verdicts(Console& console) : console_(console) {}

    void add(bool passed, const std::string& what, const std::string& detail = "") {
        console_.line(std::string(passed ? "pass  " : "FAIL  ") + what +
                      (detail.empty() ? "" : " (" + detail + ")"));
        ++(passed ? passed_ : failed_);
    }
    void add(const Finding& finding) { add(finding.passed, finding.what, finding.detail); }
    unsigned passed() const { return passed_; }
    unsigned failed() const { return failed_; }

  private:
    Console& console_;
    unsigned passed_ = 0;
    unsigned failed_ = 0;
};

/// The combination with the most kinds of stream in it.
const Combination& richest(Selector selector) {
    return selector == Selector::kSignalType
               ? *find_combination(selector, CAM_SIGNAL_H264_H264_GRAY)
               : *find_combination(selector, CAM_VIDEO_H264_H264);
}

/// The combination with JPEG in it.
const Combination& with_stills(Selector selector) {
    return selector == Selector::kSignalType ? *find_combination(selector, CAM_SIGNAL_H264_GRAY_SI)
                                             : *find_combination(selector, CAM_VIDEO_H264_MJPEG);
}

void check_combination(Session& session, Selector selector, const Combination& combination,
                       const std::filesystem::path& folder, const Controls& controls,
                       Verdicts* verdicts) {
    const SetOutcome chosen = set_property(
        session, {find_property(property_of(selector)), {.value = combination.number}});
    verdicts->add(chosen.result != SetOutcome::Result::kRefused,
                  std::string("takes the combination ") + combination.name);
    std::filesystem::create_directories(folder);
    RecordingPlan plan;
    plan.name = combination.name;
    plan.streams = every_stream();
    plan.duration = kCheckDuration;
    if (selector == Selector::kSignalType && combination.carries.count(Stream::kJpeg) > 0) {
        plan.jpeg_interval = kStillInterval;
    }
    const RecordingResult result = run_recording(session, plan, folder, controls);
    if (result.end == RecordingResult::End::kInterrupted) {
        throw Failure(ExitCode::kInterrupted, "interrupted");
    }
    verdicts->add(result.end == RecordingResult::End::kComplete, "records for two seconds",
                  words_for(result.end));
    verdicts->add(result.stop_confirmed, "StopRecording answers true");
    verdicts->add(session.state() == CAM_STATE_READY, "is ready again afterwards",
                  words_for(session.state()));
    for (const Finding& finding : judge(combination.carries, result)) {
        verdicts->add(finding);
    }
}

}  // namespace

ExitCode run_check(const Options& options) {
    std::optional<TemporaryFolder> temporary;
    std::filesystem::path folder = options.record.output;
    if (folder.empty()) {
        folder = temporary.emplace().path();
    }
    std::filesystem::create_directories(folder);
    Workbench bench(options.common,
                    options.common.log.empty() ? folder / "plugin.log" : options.common.log);
    Session& session = bench.bring_up();
    Verdicts verdicts(bench.console());
    verdicts.add(bench.plugin().version() > 0, "cam_version answers",
                 format("%d", bench.plugin().version()));
    verdicts.add(session.state() == CAM_STATE_READY, "is ready after Init",
                 words_for(session.state()));
    const Selector selector = session.selector();
    for (const Combination* each : {&richest(selector), &with_stills(selector)}) {
        if (!session.lost()) {
            check_combination(session, selector, *each, folder / each->name, bench.controls(),
                              &verdicts);
        }
    }
    const bool lost = session.lost();
    verdicts.add(!lost, "the camera stayed");
    bench.console().line(format("%u passed, %u failed", verdicts.passed(), verdicts.failed()));
    if (lost) {
        return ExitCode::kCameraLost;
    }
    return verdicts.failed() == 0 ? ExitCode::kOk : ExitCode::kCheckFailed;
}

}  // namespace camhost
