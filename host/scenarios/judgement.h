// Whether a scenario ended as its file says.
//
// "expect" of a scenario:
//   exit        what camhost record ends with: "done", "no-camera", "camera-lost", "no-frames",
//               "failed" or a list of those; default "done"
//   takes       for each recording an object: by stream, by figure of the JSON report (dots lead
//               into objects), a number or [least, most], null for no bound; besides "end"
//   log         texts that the plug-in's log has
//   camera      by figure of the camera's status, likewise; texts and truth values are compared
//   complaints  codes of complaints that belong to it, besides the plug-in's known ones
//   strikes     for each rule how often it struck, number or [least, most]; default: at least once
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "host/base/exit_code.h"
#include "host/scenarios/scenario.h"

namespace camhost {

/// What a run has left.
// NOLINTNEXTLINE(bugprone-exception-escape): JSON's move, which its makers declare noexcept
struct Evidence {
    int exit_code = 0;
    nlohmann::json report;  ///< of `camhost record --json`; null when it wrote none
    nlohmann::json status;  ///< of the virtual bus; null when there is none
    std::string log;        ///< the plug-in's
};

/// Sentences about what differs; empty when all is as the scenario expects. Throws Failure (kUsage)
/// when "expect" asks for what cannot be.
std::vector<std::string> judge(const Scenario& scenario, const Evidence& evidence);

}  // namespace camhost
