// camhost trace: what a start, a recording and a stop ask of the camera.
#include "host/base/temporary_folder.h"
#include "host/commands/commands.h"
#include "host/commands/record_stage.h"
#include "host/commands/workbench.h"

namespace camhost {

namespace {
constexpr std::chrono::milliseconds kTraceDuration{1000};
}

ExitCode run_trace(const Options& options) {
    const TemporaryFolder folder;
    RecordOptions record = options.record;
    record.duration = record.duration.value_or(kTraceDuration);
    Workbench bench(options.common, log_of(options.common));
    Session& session = bench.bring_up();
    StageRecorder recorder(record, session, bench.controls());
    const StageResult result = recorder.record(named_stage(record, session), folder.path());
    bench.close();
    if (!options.common.pcap.empty()) {
        bench.console().line("for Wireshark: " + options.common.pcap.string());
    }
    return result.code;
}

}  // namespace camhost
