// What a recording must look like, judged from its files and figures.
#pragma once

#include <string>
#include <vector>

#include "host/recording/recording_run.h"

namespace camhost {

struct Finding {
    bool passed = false;
    std::string what;
    std::string detail;  ///< figures; may be empty
};

/// `carries`: the streams that must have arrived.
std::vector<Finding> judge(const StreamSet& carries, const RecordingResult& result);

}  // namespace camhost
