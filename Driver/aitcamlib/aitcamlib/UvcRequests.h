// Numbers of the USB Video Class (UVC 1.00, appendix A), those that it shares with the Audio Class,
// and the entities of the camera.
#pragma once

namespace usb {

// bmRequestType (USB 2.0, 9.3).
constexpr unsigned char kDirectionIn = 0x80;
constexpr unsigned char kClassToDevice = 0x20;
constexpr unsigned char kClassToInterface = 0x21;
constexpr unsigned char kClassToEndpoint = 0x22;
constexpr unsigned char kClassFromDevice = kClassToDevice | kDirectionIn;
constexpr unsigned char kClassFromInterface = kClassToInterface | kDirectionIn;
constexpr unsigned char kClassFromEndpoint = kClassToEndpoint | kDirectionIn;
constexpr unsigned char kVendorToDevice = 0x40;
constexpr unsigned char kVendorFromDevice = kVendorToDevice | kDirectionIn;

}  // namespace usb

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

// Processing unit control selectors (A.9.5).
constexpr unsigned char kPuBacklightCompensation = 1;
constexpr unsigned char kPuBrightness = 2;
constexpr unsigned char kPuContrast = 3;
constexpr unsigned char kPuGain = 4;
constexpr unsigned char kPuPowerLineFrequency = 5;
constexpr unsigned char kPuHue = 6;
constexpr unsigned char kPuSaturation = 7;
constexpr unsigned char kPuSharpness = 8;
constexpr unsigned char kPuGamma = 9;
constexpr unsigned char kPuWhiteBalanceTemperature = 10;
constexpr unsigned char kPuWhiteBalanceTemperatureAuto = 11;

/// Bytes of a processing-unit control (4.2.2.3); 0 for what is not to be set from here: unknown
/// numbers, and gain, which is deliberately left to the camera.
inline unsigned char PuLength(unsigned int selector) {
    switch (selector) {
        case kPuBacklightCompensation:
        case kPuBrightness:
        case kPuContrast:
        case kPuHue:
        case kPuSaturation:
        case kPuSharpness:
        case kPuGamma:
        case kPuWhiteBalanceTemperature:
            return 2;
        case kPuPowerLineFrequency:
        case kPuWhiteBalanceTemperatureAuto:
            return 1;
        default:
            return 0;
    }
}

// Power line frequency (4.2.2.3.5).
constexpr int kPowerLine50Hz = 1;
constexpr int kPowerLine60Hz = 2;

// Entities of the camera.
constexpr unsigned char kCameraTerminal = 1;
constexpr unsigned char kProcessingUnit = 3;
constexpr unsigned char kExtensionUnit = 6;

constexpr int kTimeoutMs = 5000;

}  // namespace uvc

namespace uac {

// UAC 1.0, A.9 has the same codes.
using uvc::kGetCur;
using uvc::kGetMax;
using uvc::kGetMin;
using uvc::kSetCur;

// Endpoint and feature unit control selectors (A.10), where a request's wValue carries them.
constexpr unsigned short kSamplingFrequencyControl = 0x0100;
constexpr unsigned short kVolumeControlMaster = 0x0200;

}  // namespace uac

/// Payload header that the camera sends: length, flags, presentation time, source clock (UVC 1.00,
/// 2.4.3.3).
constexpr unsigned int kUvcPayloadHeaderSize = 12;
