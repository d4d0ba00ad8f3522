// camhost record: one combination, or a tour over all.
#include "host/base/text.h"
#include "host/commands/commands.h"
#include "host/commands/record_report.h"
#include "host/commands/record_stage.h"
#include "host/commands/record_tour.h"
#include "host/commands/record_verdict.h"
#include "host/commands/workbench.h"

namespace camhost {

namespace {

ExitCode record_one(const RecordOptions& options, const Session& session, StageRecorder& recorder,
                    RecordReport& report) {
    const Stage stage = named_stage(options, session);
    ExitCode code = ExitCode::kOk;
    for (int take = 1; take <= options.takes; ++take) {
        const bool only = options.takes == 1;
        const StageResult result = recorder.record(
            stage, only ? options.output : options.output / format("take-%d", take));
        report.add(stage, result);
        code = code == ExitCode::kOk || cuts_short(result.code) ? result.code : code;
        if (cuts_short(result.code)) {
            break;
        }
    }
    return code;
}

ExitCode record(const RecordOptions& options, Workbench& bench, Session& session) {
    Console& console = bench.console();
    RecordReport report(bench.plugin().version(), session);
    StageRecorder recorder(options, session, bench.controls());
    recorder.apply_general_settings();
    const ExitCode code = options.tour ? RecordTour(options, session, console).run(recorder, report)
                                       : record_one(options, session, recorder, report);
    if (!options.json.empty()) {
        report.write(options.json);
    }
    console.line();
    console.line("files are in " + options.output.string() + "/");
    return code;
}

}  // namespace

ExitCode run_record(const Options& options) {
    const RecordOptions& wanted = options.record;
    std::filesystem::create_directories(wanted.output);
    const auto log = options.common.log.empty() ? wanted.output / "plugin.log" : options.common.log;
    Workbench bench(options.common, log);
    Session& session = bench.bring_up();
    const ExitCode code = record(wanted, bench, session);
    if (code == ExitCode::kCameraLost) {
        bench.console().line("the camera went away while recording: " + session.loss());
    }
    bench.close();
    return code;
}

}  // namespace camhost
