// Identifiers of the camera terminal's controls, as Video4Linux 2 numbers them (camera class of
// linux/v4l2-controls.h): hosts and the camera's adapter name axes by them.
#pragma once

constexpr unsigned int kPanAbsolute = 0x009A0908;
constexpr unsigned int kTiltAbsolute = 0x009A0909;
constexpr unsigned int kFocusAbsolute = 0x009A090A;
constexpr unsigned int kZoomAbsolute = 0x009A090D;
