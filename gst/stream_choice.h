// Which combination of streams the camera is asked for.
#pragma once

#include <string>

#include "host/properties/combination.h"

namespace gstcam {

struct StreamChoice {
    int combination = 0;  ///< value of the property that selects
    bool nv12 = false;    ///< NV12 pictures are to be added to it
};

/// The combination that carries `wanted` and the least besides. `by_name` (name, enumerator or
/// number) decides instead, where it is not empty. Throws camhost::Failure (kRefused) with a
/// sentence that names what goes together when no combination, or not that one, carries all.
StreamChoice choose_streams(camhost::Selector selector, const camhost::StreamSet& wanted,
                            const std::string& by_name);

/// True when the combination carries all of `wanted` but NV12, which can be added to each.
bool carries(camhost::Selector selector, int combination, const camhost::StreamSet& wanted);

}  // namespace gstcam
