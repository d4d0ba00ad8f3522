// Request codes, entity numbers and endpoint addresses of the camera's USB function.
#pragma once

#include <array>
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
inline constexpr uint8_t kInfoDisabledByAutomatic = 0x04;

// Control selectors (UVC 1.00, tables; UAC 1.0, tables ).
inline constexpr uint8_t kVcRequestErrorCode = 0x02;
inline constexpr uint8_t kVsProbe = 0x01;
inline constexpr uint8_t kVsCommit = 0x02;
inline constexpr uint8_t kVsStreamErrorCode = 0x06;
inline constexpr uint8_t kCtFocusAbsolute = 0x06;
inline constexpr uint8_t kCtZoomAbsolute = 0x0B;
inline constexpr uint8_t kCtPanTiltAbsolute = 0x0D;
inline constexpr uint8_t kPuBacklightCompensation = 0x01;
inline constexpr uint8_t kPuBrightness = 0x02;
inline constexpr uint8_t kPuContrast = 0x03;
inline constexpr uint8_t kPuGain = 0x04;
inline constexpr uint8_t kPuPowerLineFrequency = 0x05;
inline constexpr uint8_t kPuHue = 0x06;
inline constexpr uint8_t kPuSaturation = 0x07;
inline constexpr uint8_t kPuSharpness = 0x08;
inline constexpr uint8_t kPuGamma = 0x09;
inline constexpr uint8_t kPuWhiteBalance = 0x0A;
inline constexpr uint8_t kPuWhiteBalanceAuto = 0x0B;
inline constexpr uint8_t kFuMute = 0x01;
inline constexpr uint8_t kFuVolume = 0x02;
inline constexpr uint8_t kEpSamplingFrequency = 0x01;

// Values of the request error code control (UVC 1.00, 4.2.1.2).
inline constexpr uint8_t kErrorNone = 0x00;
inline constexpr uint8_t kErrorWrongState = 0x02;
inline constexpr uint8_t kErrorOutOfRange = 0x04;
inline constexpr uint8_t kErrorInvalidUnit = 0x05;
inline constexpr uint8_t kErrorInvalidControl = 0x06;
inline constexpr uint8_t kErrorInvalidRequest = 0x07;

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

// Extension unit: its control selectors. Commands and results are blocks of one length for each
// group; firmware data has no group.
inline constexpr uint8_t kIspCommand = 1;
inline constexpr uint8_t kIspResult = 2;
inline constexpr uint8_t kFirmwareData = 3;
inline constexpr uint8_t kAuxCommand = 4;
inline constexpr uint8_t kAuxResult = 5;
inline constexpr uint8_t kMmpCommand = 14;
inline constexpr uint8_t kMmpResult = 15;

struct ExtensionBlock {
    uint8_t selector;
    uint16_t length;  ///< bytes
    bool result;      ///< read with GET_CUR; the others are written with SET_CUR
    uint8_t answers;  ///< of a command: selector that its reply is read from, else 0
    const char* group;
};

inline constexpr std::array kExtensionBlocks{
    ExtensionBlock{kIspCommand, 8, false, kIspResult, "ISP"},
    ExtensionBlock{kIspResult, 8, true, 0, "ISP"},
    ExtensionBlock{kFirmwareData, 32, false, 0, ""},
    ExtensionBlock{kAuxCommand, 8, false, kAuxResult, "AUX"},
    ExtensionBlock{kAuxResult, 8, true, 0, "AUX"},
    ExtensionBlock{kMmpCommand, 16, false, kMmpResult, "MMP"},
    ExtensionBlock{kMmpResult, 16, true, 0, "MMP"},
};

/// Null when the unit has no such selector.
inline constexpr const ExtensionBlock* extension_block(uint8_t selector) {
    for (const ExtensionBlock& block : kExtensionBlocks) {
        if (block.selector == selector) {
            return &block;
        }
    }
    return nullptr;
}

}  // namespace virtcam::model::usb
