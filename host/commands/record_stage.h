// One stage of `camhost record`: a combination of streams, chosen, recorded and shown.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "host/base/exit_code.h"
#include "host/commands/options.h"
#include "host/pictures/contact_sheet.h"
#include "host/recording/recording_run.h"

namespace camhost {

/// One stop of the tour, or the only recording.
struct Stage {
    std::string name;
    std::optional<int> number;  ///< combination to choose; nothing: as the plug-in stands
    StreamSet carries;          ///< what should arrive; empty when unknown
    bool nv12 = false;
};

/// What --signal or --video-mode names or, without them, what is set. Throws Failure: kRefused when
/// this television selects by the other one, kUsage for an unknown name.
Stage named_stage(const RecordOptions& options, const Session& session);

/// Every combination that the plug-in knows, in the order of their numbers.
std::vector<Stage> tour_stages(const RecordOptions& options, const Session& session);

struct StageResult {
    RecordingResult recording;
    std::vector<ContactSheetTile> tiles;  ///< of the streams that delivered, in their order
    ExitCode code = ExitCode::kOk;        ///< what camhost exits with if nothing else happens
};

/// Records stages and tells on the console what each came to.
class StageRecorder {
  public:
    /// Everything is borrowed.
    StageRecorder(const RecordOptions& options, Session& session, const Controls& controls)
        : options_(options), session_(session), controls_(controls), console_(controls.console) {}

    /// Sets what the options say for all stages: size and rates.
    void apply_general_settings();
    /// Sets the combination of the stage.
    void choose(const Stage& stage);
    /// Records the stage into `folder`, which is made.
    StageResult record(const Stage& stage, const std::filesystem::path& folder);

  private:
    void change(CAM_PROPERTY property, const CAM_PROP_VALUE& value);
    void advise_on_size();
    std::chrono::milliseconds still_interval(const Stage& stage) const;
    RecordingPlan plan_for(const Stage& stage) const;
    RecordingResult run(const Stage& stage, const RecordingPlan& plan,
                        const std::filesystem::path& folder);
    StreamSet expected(const Stage& stage, const RecordingPlan& plan) const;
    void show(const RecordingResult& recording, const StreamSet& expected);

    const RecordOptions& options_;
    Session& session_;
    const Controls controls_;
    Console& console_;
    bool setting_refused_ = false;
};

}  // namespace camhost
