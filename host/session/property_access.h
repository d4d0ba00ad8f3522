// Setting and reading properties, with answers that promise no more than the plug-in does.
#pragma once

#include <string>

#include "host/properties/property_catalog.h"
#include "host/session/session.h"

namespace camhost {

struct SetOutcome {
    enum class Result {
        kDone,     ///< applied, or sent where nothing more is known
        kKept,     ///< refused now, but remembered for the next start of recording
        kIgnored,  ///< accepted without effect
        kRefused,
    };
    Result result = Result::kRefused;
    std::string sentence;  ///< "mirror=on: sent ..."
    bool same = false;     ///< kRefused because it is so already
};

SetOutcome set_property(Session& session, const Assignment& assignment);

/// "bitrate = 2000000 bit/s", or that the plug-in refuses; `ok` tells which.
struct GetOutcome {
    bool ok = false;
    std::string value;  ///< with unit; empty when refused
    std::string sentence;
};

GetOutcome get_property(const Session& session, const Property& property);

}  // namespace camhost
