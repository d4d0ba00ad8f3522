// Control transfers in words, for traces and the status dump.
#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace virtcam::model {

struct Setup;

/// One line without line end, e.g. "MMP 0x02/0x02 set video option 0x00000030" or
/// "UVC PROBE SET_CUR format 4 frame 1 interval 333333". `data` is the OUT data or the IN data that
/// came back. Never fails: what is not known is shown as numbers.
std::string describe(const Setup& setup, std::span<const uint8_t> data);

}  // namespace virtcam::model
