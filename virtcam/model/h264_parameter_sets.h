// H.264 sequence parameter sets, written anew where the encoder's own will not do.
#pragma once

#include "virtcam/model/bytes.h"

namespace virtcam::model {

/// An SPS (NAL unit: header and escaped payload, no start code) that describes the same pictures
/// and does not contain the byte `unwanted` behind its header: `sps` itself when that holds
/// already, else one that allows for more reference frames than are used (and so may ask for a
/// higher level), or has no VUI. Slices
/// and PPS that belong to `sps` belong to the result; the pictures must be shown in the order in
/// which they are coded.
///
/// Throws std::runtime_error when none is found, or when one must be written and `sps` is none of
/// the Baseline profile.
Bytes sps_without_byte(ByteView sps, uint8_t unwanted);

}  // namespace virtcam::model
