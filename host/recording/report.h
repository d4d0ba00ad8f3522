// What a recording came to, for people and for programs.
#pragma once

#include <filesystem>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include "host/base/console.h"
#include "host/pictures/contact_sheet.h"
#include "host/recording/recording_run.h"

namespace camhost {

/// The table of the streams and, below it, what needs saying about them.
void print_report(Console& console, const RecordingResult& result);

/// The same figures as a JSON object; the members are documented in docs/camhost.md.
nlohmann::json report_json(const std::string& name, const RecordingResult& result);

/// One tile for each stream that delivered something.
std::vector<ContactSheetTile> contact_sheet_tiles(const RecordingResult& result);

const char* words_for(RecordingResult::End end);

}  // namespace camhost
