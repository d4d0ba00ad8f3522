// Pan, tilt, focus and zoom: controls of the camera terminal, named by hosts and by both roads to
// the camera (the video engine, AitXu.h) with Video4Linux's control identifiers (camera class of
// linux/v4l2-controls.h).
#pragma once

#include "LittleEndian.h"
#include "UvcRequests.h"

constexpr unsigned int kPanAbsolute = 0x009A0908;   ///< 1/3600 degree
constexpr unsigned int kTiltAbsolute = 0x009A0909;  ///< 1/3600 degree
constexpr unsigned int kFocusAbsolute = 0x009A090A;
constexpr unsigned int kZoomAbsolute = 0x009A090D;

/// Where an axis lies: pan and tilt share a control, so each is sent together with the other.
struct CameraAxis {
    unsigned int id;
    unsigned char selector;
    unsigned char length;  ///< bytes of the control
    unsigned char offset;  ///< of the axis in it
    unsigned int partner;  ///< the other axis in it, 0 for none
};

constexpr int kLargestAxisControl = 8;  ///< bytes

inline constexpr CameraAxis kCameraAxes[] = {
    {kPanAbsolute, uvc::kCtPanTiltAbsolute, 8, 0, kTiltAbsolute},
    {kTiltAbsolute, uvc::kCtPanTiltAbsolute, 8, 4, kPanAbsolute},
    {kFocusAbsolute, uvc::kCtFocusAbsolute, 2, 0, 0},
    {kZoomAbsolute, uvc::kCtZoomAbsolute, 2, 0, 0},
};

/// Null for an identifier that names no axis, the two numbers between focus and zoom included.
inline const CameraAxis* FindCameraAxis(unsigned int id) {
    for (const CameraAxis& axis : kCameraAxes) {
        if (axis.id == id) {
            return &axis;
        }
    }
    return nullptr;
}

/// Position in a control's bytes: pan and tilt are signed 32 bits wide, the others unsigned 16.
inline int GetPosition(const CameraAxis& axis, const unsigned char* control) {
    return axis.partner != 0 ? static_cast<int>(GetLe32(control + axis.offset))
                             : GetLe16(control + axis.offset);
}

inline void PutPosition(const CameraAxis& axis, unsigned char* control, int position) {
    if (axis.partner != 0) {
        PutLe32(control + axis.offset, static_cast<uint32_t>(position));
    } else {
        PutLe16(control + axis.offset, static_cast<uint16_t>(position));
    }
}
