// Request codes, entity numbers and endpoint addresses of the camera's USB function.
#pragma once

#include <cstdint>

namespace virtcam::model::usb {

// bmRequestType (USB 2.0, table 9-2), direction bit removed.
inline constexpr uint8_t kDirectionIn = 0x80;
inline constexpr uint8_t kTypeMask = 0x60;
inline constexpr uint8_t kTypeStandard = 0x00;
inline constexpr uint8_t kTypeClass = 0x20;
inline constexpr uint8_t kTypeVendor = 0x40;
inline constexpr uint8_t kRecipientMask = 0x1F;
inline constexpr uint8_t kRecipientDevice = 0;
inline constexpr uint8_t kRecipientInterface = 1;
inline constexpr uint8_t kRecipientEndpoint = 2;

// Standard requests (USB 2.0, table 9-4).
inline constexpr uint8_t kGetStatus = 0;
inline constexpr uint8_t kClearFeature = 1;
inline constexpr uint8_t kSetFeature = 3;
inline constexpr uint8_t kSetAddress = 5;
inline constexpr uint8_t kGetDescriptor = 6;
inline constexpr uint8_t kGetConfiguration = 8;
inline constexpr uint8_t kSetConfiguration = 9;
inline constexpr uint8_t kGetInterface = 10;
inline constexpr uint8_t kSetInterface = 11;
inline constexpr uint16_t kFeatureEndpointHalt = 0;

// Class requests (UVC 1.00, table A-8; UAC 1.0, table A-9 uses the same codes).
inline constexpr uint8_t kSetCur = 0x01;
inline constexpr uint8_t kGetCur = 0x81;
inline constexpr uint8_t kGetMin = 0x82;
inline constexpr uint8_t kGetMax = 0x83;
inline constexpr uint8_t kGetRes = 0x84;
inline constexpr uint8_t kGetLen = 0x85;
inline constexpr uint8_t kGetInfo = 0x86;
inline constexpr uint8_t kGetDef = 0x87;

// GET_INFO capability bits (UVC 1.00, 4.1.2).
inline constexpr uint8_t kInfoGet = 0x01;
inline constexpr uint8_t kInfoSet = 0x02;

// The camera's numbers.
inline constexpr uint16_t kProductBootCode = 0x2065;
inline constexpr uint16_t kProductRunTime = 0x2066;
inline constexpr uint8_t kInterfaceVideoControl = 0;
inline constexpr uint8_t kInterfaceVideoStreaming = 1;
inline constexpr uint8_t kInterfaceAudioControl = 2;
inline constexpr uint8_t kInterfaceAudioStreaming = 3;
inline constexpr uint8_t kInterfaceDownload = 2;  ///< boot code, newer kind
inline constexpr uint8_t kEntityCameraTerminal = 1;
inline constexpr uint8_t kEntityProcessingUnit = 3;
inline constexpr uint8_t kEntityOutputTerminal = 4;
inline constexpr uint8_t kEntityFeatureUnit = 5;
inline constexpr uint8_t kEntityExtensionUnit = 6;
inline constexpr uint8_t kEndpointDownload = 0x01;
inline constexpr uint8_t kEndpointVideo = 0x81;
inline constexpr uint8_t kEndpointAudio = 0x82;
inline constexpr uint16_t kAudioPacketBytes = 100;  ///< 25 stereo frames: room for 24 kHz and drift

// Vendor requests.
inline constexpr uint8_t kVendorFacePositions = 1;
inline constexpr uint8_t kVendorFaceParameters = 2;
inline constexpr uint8_t kVendorBurnDefault = 3;
inline constexpr uint8_t kVendorBurnChip3 = 5;
inline constexpr uint8_t kVendorBurnChip2 = 6;
inline constexpr uint8_t kVendorChecksum = 7;
inline constexpr uint8_t kVendorBurnChip4 = 8;
inline constexpr uint8_t kVendorAnnounce = 130;

inline constexpr bool is_burn(uint8_t request) {
    return request == kVendorBurnDefault || request == kVendorBurnChip2 ||
           request == kVendorBurnChip3 || request == kVendorBurnChip4;
}

// Extension unit: control selectors and their block lengths in bytes (0: no such selector).
inline constexpr uint8_t kIspCommand = 1;
inline constexpr uint8_t kIspResult = 2;
inline constexpr uint8_t kFirmwareData = 3;
inline constexpr uint8_t kAuxCommand = 4;
inline constexpr uint8_t kAuxResult = 5;
inline constexpr uint8_t kMmpCommand = 14;
inline constexpr uint8_t kMmpResult = 15;

inline constexpr uint16_t extension_length(uint8_t selector) {
    switch (selector) {
        case kIspCommand:
        case kIspResult:
        case kAuxCommand:
        case kAuxResult:
            return 8;
        case kFirmwareData:
            return 32;
        case kMmpCommand:
        case kMmpResult:
            return 16;
        default:
            return 0;
    }
}

inline constexpr bool is_extension_result(uint8_t selector) {
    return selector == kIspResult || selector == kAuxResult || selector == kMmpResult;
}

}  // namespace virtcam::model::usb
