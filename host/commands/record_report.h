// The file of `camhost record --json`: the figures of every stage, for programs.
#pragma once

#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>

#include "host/commands/record_stage.h"

namespace camhost {

class RecordReport {
  public:
    RecordReport(int plugin_version, const Session& session);

    void add(const Stage& stage, const StageResult& result);
    /// Throws Failure (kFailed) when the file cannot be written.
    void write(const std::filesystem::path& path) const;

  private:
    nlohmann::json report_;
};

}  // namespace camhost
