// Packing of a picture into the raw formats that the camera sends.
#pragma once

#include "virtcam/model/bytes.h"
#include "virtcam/model/picture.h"

namespace virtcam::model {

/// Y0 U Y1 V, 16 bits a pixel; chroma rows are used for two picture rows each.
Bytes pack_yuy2(const Picture& picture);
/// Luma plane, then interleaved chroma, U first (NV12).
Bytes pack_nv12(const Picture& picture);
/// Luma plane, then interleaved chroma, V first (NV21).
Bytes pack_nv21(const Picture& picture);
/// Luma plane alone.
Bytes pack_gray(const Picture& picture);

}  // namespace virtcam::model
