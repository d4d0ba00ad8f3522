// What get, set, list and capabilities print, for the commands and for the shell.
#pragma once

#include <string>

#include "host/base/console.h"
#include "host/properties/property_catalog.h"
#include "host/session/session.h"

namespace camhost {

/// False when the plug-in refuses. Throws Failure (kUsage) for an unknown name.
bool print_get(Console& console, const Session& session, const std::string& name);
/// False when the plug-in refuses, also when it keeps the value for the next start.
bool perform_set(Console& console, Session& session, const Assignment& assignment);
void print_list(Console& console, const Session& session);
void print_capabilities(Console& console, Session& session);

}  // namespace camhost
