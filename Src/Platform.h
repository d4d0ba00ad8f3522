// The television chassis that the library runs on, told from the flash's info file.
#pragma once

#include <stdint.h>

#include "CameraInterface.h"

/// How the host selects streams.
enum TV_MODE : int32_t {
    USE_CAM_VIDEO_MODE = 0,   ///< with CAM_PROPERTY_VIDEO_MODE
    USE_CAM_SIGNAL_TYPE = 1,  ///< with CAM_PROPERTY_SIGNAL_TYPE
};

enum PLATFORM : int32_t {
    UNKNOWN_PF = 0,
    TENCH_S = 1,
    TENCH_P = 2,
    DACE_P = 3,
    RUFFPLUS = 4,
    BREAM = 5,
    PERCH = 6,
    ROACH = 7,
    SHADS = 8,
    SHADP = 9,
};

/// Path of the info file; writable, so that a bench can point it elsewhere.
extern char info_file_path_name[256];

/// What the info file says about the platform.
struct PlatformInfo {
    PLATFORM platform;
    unsigned int level;  ///< of the log line
    const char* text;    ///< the log line
    TV_MODE tvMode;
    /// Stream selection that goes with it.
    CAM_VIDEO_MODE videoMode;
    CAM_SIGNAL_TYPE signalType;
};

/// Reads the info file and finds the platform; an unreadable file gives UNKNOWN_PF after a log
/// line.
const PlatformInfo& DetectPlatform();

/// Reads the mains frequency selector: 1 or 2; 0 without a configuration file.
int ReadPowerFrequency();
