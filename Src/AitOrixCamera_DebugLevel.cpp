// The debug level and the marker files that keep it across power cycles.
#include <stdio.h>
#include <unistd.h>

#include "AitOrixCamera.h"
#include "aitdbg.h"
#include "aitshell.h"

namespace {

constexpr int kLowestLevel = 1;
constexpr int kHighestLevel = 5;

bool MarkerExists(int level) {
    char path[64];
    snprintf(path, sizeof path, "/mtd_rwarea/camera_l%d", level);
    return access(path, F_OK) == 0;
}

}  // namespace

bool CAitOrixCamera::LoadDebugLevel() {
    int level = kHighestLevel;
    while (level > kLowestLevel && !MarkerExists(level)) {
        --level;
    }
    g_embedded_cam_dbg_level = static_cast<unsigned int>(level);
    return true;
}

bool CAitOrixCamera::SetDebugLevel(int level) {
    if (level < kLowestLevel || level > kHighestLevel) {
        AIT_LOG(1, "input 1~5(%d) level", level);
        return false;
    }
    AITCAM_ExecuteShell("rm -rf /mtd_rwarea/camera_l*");
    char command[256] = {};
    snprintf(command, sizeof command, "touch /mtd_rwarea/camera_l%d; sync", level);
    AITCAM_ExecuteShell(command);
    g_embedded_cam_dbg_level = static_cast<unsigned int>(level);
    return true;
}
