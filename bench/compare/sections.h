// The sections of the comparison.
#pragma once

#include <nlohmann/json.hpp>
#include <set>
#include <string>

namespace bench {

struct Options {
    std::string plugin;
    unsigned repeats = 5;
    bool raised = false;  ///< whether the process could raise its priority
};

/// Runs the named sections, all when there are none. Throws std::runtime_error.
nlohmann::json run_sections(const Options& options, const std::set<std::string>& only);

}  // namespace bench
