#include "host/commands/record_report.h"

#include <fstream>

#include "host/recording/report.h"

namespace camhost {

RecordReport::RecordReport(int plugin_version, const Session& session)
    : report_{{"plugin_version", plugin_version},
              {"selector", session.by_signal_type() ? "signal-type" : "video-mode"},
              {"recordings", nlohmann::json::array()}} {}

void RecordReport::add(const Stage& stage, const StageResult& result) {
    report_["recordings"].push_back(report_json(stage.name, result.recording));
}

void RecordReport::write(const std::filesystem::path& path) const {
    std::ofstream file(path);
    file << report_.dump(2) << '\n';
    file.close();
    if (!file) {
        throw Failure(ExitCode::kFailed, "cannot write " + path.string());
    }
}

}  // namespace camhost
