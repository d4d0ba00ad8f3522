// Numbers of the USB Video Class (UVC 1.00, appendix A) and of the camera's topology.
#pragma once

namespace uvc {

// Class-specific request codes (A.8).
constexpr unsigned char kSetCur = 0x01;
constexpr unsigned char kGetCur = 0x81;
constexpr unsigned char kGetMin = 0x82;
constexpr unsigned char kGetMax = 0x83;

// VideoStreaming interface control selectors (A.9.7).
constexpr unsigned char kVsProbeControl = 1;
constexpr unsigned char kVsCommitControl = 2;

// Camera terminal control selectors (A.9.4).
constexpr unsigned char kCtFocusAbsolute = 6;
constexpr unsigned char kCtZoomAbsolute = 11;
constexpr unsigned char kCtPanTiltAbsolute = 13;

// Entities of the camera.
constexpr unsigned char kCameraTerminal = 1;
constexpr unsigned char kProcessingUnit = 3;
constexpr unsigned char kExtensionUnit = 6;

constexpr int kTimeoutMs = 5000;

}  // namespace uvc

/// Payload header that the camera sends: length, flags, presentation time, source clock (UVC 1.00,
/// 2.4.3.3).
constexpr unsigned int kUvcPayloadHeaderSize = 12;
