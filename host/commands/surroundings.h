// The television's folders, where the machine has none.
#pragma once

#include "host/base/exit_code.h"

namespace camhost {

/// True when the plug-in would find the television's folders here (/mtd_exe, /mtd_rwarea,
/// /mtd_rwcommon, /dtv, /proc/bus/usb).
bool in_television_surroundings();

/// Runs this program again with the same arguments in a sandbox that has the folders, with default
/// files in them, and returns what it ends with. Throws Failure (kUsage) when the scripts that make
/// the sandbox are not near the program.
int run_in_sandbox(char** argv);

}  // namespace camhost
