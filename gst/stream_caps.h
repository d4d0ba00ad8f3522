// What a stream is like, told by its records.
#pragma once

#include <gst/gst.h>

#include <memory>
#include <span>

#include "gst/camera_control.h"
#include "gst/stream_table.h"

namespace gstcam {

struct CapsUnref {
    void operator()(GstCaps* caps) const { gst_caps_unref(caps); }
};
using CapsRef = std::unique_ptr<GstCaps, CapsUnref>;

/// The caps of a stream that a record of it shows; null when it does not (H.264 without sequence
/// parameters, a picture that is damaged, raw pixels of a size that the camera does not make).
CapsRef caps_of(camhost::Stream stream, std::span<const uint8_t> record,
                const StreamSettings& settings);

}  // namespace gstcam
