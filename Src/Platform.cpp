#include "Platform.h"

#include <stdio.h>
#include <stdlib.h>

#include "FileContent.h"
#include "aitdbg.h"

char info_file_path_name[256] = "/mtd_exe/.info";

namespace {

constexpr char kFrequencyFile[] = "/dtv/cm_frequency";
constexpr size_t kInfoSize = 256;

constexpr CAM_VIDEO_MODE kMjpeg = CAM_VIDEO_H264_MJPEG;
constexpr CAM_SIGNAL_TYPE kSi = CAM_SIGNAL_H264_GRAY_SI;

/// In the order of enum PLATFORM.
constexpr PlatformInfo kPlatforms[] = {
    {UNKNOWN_PF, 4, "We can not support TV \r\n", USE_CAM_VIDEO_MODE, kMjpeg, kSi},
    {TENCH_S, 1, "TV platform is TENCH_S \r\n", USE_CAM_VIDEO_MODE, kMjpeg, kSi},
    {TENCH_P, 1, "TV platform is TENCH_P \r\n", USE_CAM_VIDEO_MODE, kMjpeg, kSi},
    {DACE_P, 4, "TV platform is DaceP \r\n", USE_CAM_VIDEO_MODE, CAM_VIDEO_H264_H264, kSi},
    {RUFFPLUS, 1, "TV platform is Ruff Plus \r\n", USE_CAM_VIDEO_MODE, CAM_VIDEO_H264_H264, kSi},
    {BREAM, 1, "TV platform is BREAM \r\n", USE_CAM_SIGNAL_TYPE, kMjpeg, kSi},
    {PERCH, 1, "TV platform is PERCH \r\n", USE_CAM_SIGNAL_TYPE, kMjpeg, kSi},
    {ROACH, 1, "TV platform is ROACH \r\n", USE_CAM_SIGNAL_TYPE, kMjpeg, kSi},
    {SHADS, 1, "TV platform is SHADS \r\n", USE_CAM_SIGNAL_TYPE, kMjpeg, kSi},
    {SHADP, 1, "TV platform is SHADP \r\n", USE_CAM_SIGNAL_TYPE, kMjpeg, kSi},
};

/// One row of the decision: the platform, and the characters (0: any) at positions 2 to 6 of the
/// file.
struct InfoPattern {
    PLATFORM platform;
    char at[5];
};

/// The first row that fits wins; the order is part of the rule. A file with "GF" and neither 'S'
/// nor 'P' behind it fits no row after that one: it is unsupported at once.
constexpr InfoPattern kPatterns[] = {
    {BREAM, {0, 0, 0, '1', '2'}},      {RUFFPLUS, {0, 0, 0, '1', '0'}},
    {PERCH, {0, 0, 0, '1', '4'}},      {ROACH, {0, 0, '1', '4', 0}},
    {SHADS, {'G', 'F', 'S', 0, 0}},    {SHADP, {'G', 'F', 'P', 0, 0}},
    {UNKNOWN_PF, {'G', 'F', 0, 0, 0}}, {DACE_P, {'E', 0, 'P', 0, 0}},
    {TENCH_P, {0, 0, 'P', 0, 0}},      {TENCH_S, {0, 0, 'S', 0, 0}},
};

bool Fits(const InfoPattern& pattern, const char* info) {
    for (int i = 0; i < 5; ++i) {
        if (pattern.at[i] != 0 && pattern.at[i] != info[2 + i]) {
            return false;
        }
    }
    return true;
}

PLATFORM FindPlatform(const char* info) {
    for (const InfoPattern& pattern : kPatterns) {
        if (Fits(pattern, info)) {
            return pattern.platform;
        }
    }
    return UNKNOWN_PF;
}

}  // namespace

const PlatformInfo& DetectPlatform() {
    AIT_LOG_AS("CAitOrixCamera");
    char info[kInfoSize] = {};
    const FilePtr file = OpenFile(info_file_path_name);
    if (file == nullptr) {
        AIT_LOG(1, "fail to open info file\n");
    } else if (fread(info, 1, sizeof info, file.get()) < sizeof info) {
        // A short file is usual: what is missing stays zero.
    }
    const PlatformInfo& found = kPlatforms[FindPlatform(info)];
    AIT_LOG(found.level, "%s", found.text);
    return found;
}

int ReadPowerFrequency() {
    AIT_LOG_AS("CAitOrixCamera");
    AIT_LOG(4, "Anti Flicker path %s ...\r\n", kFrequencyFile);
    const FilePtr file = OpenFile(kFrequencyFile);
    if (file == nullptr) {
        AIT_LOG(1, "Can't open file. /dtv/cm_frequency!!!\r\n");
        return 0;
    }
    char line[8] = {};
    if (fgets(line, sizeof line, file.get()) == nullptr) {
        return 0;
    }
    const long frequency = strtol(line, nullptr, 10);
    return frequency == 2 ? 2 : 1;
}
