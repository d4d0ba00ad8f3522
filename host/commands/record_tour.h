// `camhost record --tour`: every combination in turn, and what they come to together.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "host/commands/record_report.h"
#include "host/commands/record_stage.h"

namespace camhost {

class RecordTour {
  public:
    /// Everything is borrowed.
    RecordTour(const RecordOptions& options, const Session& session, Console& console)
        : options_(options), session_(session), console_(console) {}

    /// Records every stage into a folder of its own and tells of the whole. Goes on after a stage
    /// that failed; a lost camera and Ctrl-C end it. Returns the first code that is not kOk, or the
    /// one that ended the tour.
    ExitCode run(StageRecorder& recorder, RecordReport& report);

  private:
    void count(const StageResult& result);
    StreamSet print_totals();
    void tell_early_end(const std::vector<Stage>& stages, size_t visited, ExitCode why);
    ExitCode conclude();

    const RecordOptions& options_;
    const Session& session_;
    Console& console_;
    std::array<uint64_t, kStreamCount> records_{};
    std::vector<ContactSheetTile> tiles_;  ///< the first of each stream
};

}  // namespace camhost
