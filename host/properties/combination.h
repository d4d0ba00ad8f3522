// The combinations of streams that a camera can be asked for.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "host/streams/stream.h"

namespace camhost {

struct Combination {
    int number;            ///< value of CAM_SIGNAL_TYPE or CAM_VIDEO_MODE
    const char* name;      ///< as users type it, and the folder of its files
    const char* constant;  ///< the enumerator
    StreamSet carries;     ///< what the camera then sends, sound included
};

/// How a television selects: by signal type or by video mode.
enum class Selector { kSignalType, kVideoMode };

CAM_PROPERTY property_of(Selector selector);
std::span<const Combination> combinations(Selector selector);
/// The combination that a value of `property` chooses; null for other properties and where the
/// plug-in knows none of that number.
const Combination* chosen_combination(CAM_PROPERTY property, int number);
/// The combination of that number; null when the plug-in knows none.
const Combination* find_combination(Selector selector, int number);

/// Reads a name ("h264-gray"), an enumerator ("CAM_SIGNAL_H264_GRAY") or a number, which need not
/// be one that the plug-in knows. Throws Failure (kUsage) that names the nearest.
int parse_combination(Selector selector, std::string_view text);

/// The names of all, in the order of their numbers.
std::vector<std::string> combination_names(Selector selector);

/// The name, or the number when it has none.
std::string combination_name(Selector selector, int number);

}  // namespace camhost
