#include "AitXu.h"

#include <stddef.h>
#include <string.h>

#include "ExtensionUnit.h"
#include "LibusbWrap.h"
#include "LittleEndian.h"
#include "UvcRequests.h"
#include "V4l2Controls.h"
#include "aitdbg.h"

namespace {

// The device recipient, not the interface: the firmware of these cameras expects it on this path.
constexpr uint8_t kToDevice = 0x20;
constexpr uint8_t kFromDevice = 0xA0;
constexpr uint16_t kExtensionUnitIndex = uvc::kExtensionUnit << 8;
constexpr uint16_t kCameraTerminalIndex = uvc::kCameraTerminal << 8;

constexpr int kShortTimeoutMs = 500;
constexpr int kLongTimeoutMs = 1000;

// Vendor requests of face detection.
constexpr uint8_t kVendorToDevice = 0x40;
constexpr uint8_t kVendorFromDevice = 0xC0;
constexpr uint8_t kGetFaces = 1;
constexpr uint8_t kSetFaceParameter = 2;
constexpr int kFacesInReply = 10;
constexpr int kFaceReplySize = 1 + kFacesInReply * 8;

int ExtensionUnitTransfer(AitDevHandle* device, bool set, uint8_t selector, unsigned char* data,
                          uint16_t length, int timeoutMs) {
    return libusb_control_transfer_(device->handle, set ? kToDevice : kFromDevice,
                                    set ? uvc::kSetCur : uvc::kGetCur,
                                    static_cast<uint16_t>(selector << 8), kExtensionUnitIndex, data,
                                    length, static_cast<unsigned int>(timeoutMs));
}

unsigned int Hex(int error) {
    return static_cast<unsigned int>(error);
}

/// A control of the camera terminal and where an axis lies in it.
struct Axis {
    unsigned int id;
    uint8_t selector;
    uint8_t length;
};

constexpr uint8_t kPanTiltSize = 8;
constexpr Axis kAxes[] = {
    {kPanAbsolute, uvc::kCtPanTiltAbsolute, kPanTiltSize},
    {kTiltAbsolute, uvc::kCtPanTiltAbsolute, kPanTiltSize},
    {kFocusAbsolute, uvc::kCtFocusAbsolute, 2},
    {kZoomAbsolute, uvc::kCtZoomAbsolute, 2},
};

const Axis* FindAxis(unsigned int id) {
    for (const Axis& axis : kAxes) {
        if (axis.id == id) {
            return &axis;
        }
    }
    return nullptr;
}

int CameraTerminalTransfer(AitDevHandle* device, bool set, const Axis& axis, unsigned char* data) {
    return libusb_control_transfer_(device->handle, set ? kToDevice : kFromDevice,
                                    set ? uvc::kSetCur : uvc::kGetCur,
                                    static_cast<uint16_t>(axis.selector << 8), kCameraTerminalIndex,
                                    data, axis.length, kShortTimeoutMs);
}

/// The upper half of the tilt goes out as two flags instead of its bytes. This is how the camera's
/// pan command is built; sending the tilt whole would be another command.
void PutTiltOfPanCommand(unsigned char* to, int tilt) {
    const auto bits = static_cast<uint32_t>(tilt);
    PutLe16(to, static_cast<uint16_t>(bits));
    to[2] = (bits >> 16) != 0 ? 1 : 0;
    to[3] = (bits >> 24) != 0 ? 1 : 0;
}

}  // namespace

int AitIspCmdSet(AitDevHandle* ait_handle, unsigned char* cmd) {
    if (ait_handle == nullptr) {
        return -1;
    }
    const int result =
        ExtensionUnitTransfer(ait_handle, true, kXuIspCommand, cmd, kIspBlockSize, kShortTimeoutMs);
    if (result < 0) {
        AIT_LOG(1, "AitIspCmdSet failed : 0x%X", Hex(result));
        return result;
    }
    return 0;
}

int AitIspCmdGetResult(AitDevHandle* ait_handle, unsigned char* cmd, int timeout) {
    if (ait_handle == nullptr) {
        return -1;
    }
    const int result =
        ExtensionUnitTransfer(ait_handle, false, kXuIspResult, cmd, kIspBlockSize, timeout);
    if (result < 0) {
        AIT_LOG(1, "AitIspCmdGet failed : 0x%X", Hex(result));
        return result;
    }
    return 0;
}

int AitMMPCmdSet16(AitDevHandle* ait_handle, unsigned char* cmd) {
    if (ait_handle == nullptr) {
        return -1;
    }
    ExtensionUnitTransfer(ait_handle, true, kXuMmpCommand, cmd, kMmpBlockSize, kLongTimeoutMs);
    return 0;
}

int AitMMPCmdGetResult16(AitDevHandle* ait_handle, unsigned char* cmd) {
    if (ait_handle == nullptr) {
        return -1;
    }
    const int result =
        ExtensionUnitTransfer(ait_handle, false, kXuMmpResult, cmd, kMmpBlockSize, kShortTimeoutMs);
    if (result < 0) {
        AIT_LOG(1, "AitIspCmdGet failed : 0x%X", Hex(result));
        return result;
    }
    return 0;
}

int AitXU_XuCmd(AitDevHandle* ait_handle, unsigned char* cmd, uint16_t cs, uint8_t len,
                int direction) {
    if (ait_handle == nullptr) {
        return AIT_ERR_DEVICE;
    }
    const int result = ExtensionUnitTransfer(ait_handle, direction != 0, static_cast<uint8_t>(cs),
                                             cmd, len, kLongTimeoutMs);
    if (result < 0) {
        AIT_LOG(1, "AitXUCmd failed : 0x%X", Hex(result));
        return result;
    }
    return 0;
}

int AitXU_GetVideoOption(AitDevHandle* handle, unsigned int* options) {
    if (handle == nullptr) {
        return -1;
    }
    unsigned char block[kMmpBlockSize] = {0x02, 0x01};
    int result = AitXU_XuCmd(handle, block, kXuMmpCommand, kMmpBlockSize, 1);
    if (result < 0) {
        return result;
    }
    result = AitXU_XuCmd(handle, block, kXuMmpResult, kMmpBlockSize, 0);
    if (result < 0) {
        return result;
    }
    // Bytes 1 and 2 unshifted and byte 3 by 12: not the mirror image of the set command and not to
    // be made one, callers of this function know the word in this form.
    *options = block[1] + block[2] + (static_cast<unsigned int>(block[3]) << 12) +
               (static_cast<unsigned int>(block[4]) << 24);
    return 0;
}

int AitXU_SetVideoOption(AitDevHandle* handle, unsigned int options) {
    if (handle == nullptr) {
        return -1;
    }
    unsigned char block[kMmpBlockSize] = {0x02, 0x02};
    PutLe32(block + 2, options);
    return AitXU_XuCmd(handle, block, kXuMmpCommand, kMmpBlockSize, 1);
}

int AitXU_GetFWVersion(AitDevHandle* handle, unsigned char* fwVer) {
    if (handle == nullptr) {
        return -1;
    }
    unsigned char block[kIspBlockSize] = {0x0B};
    int result = AitXU_XuCmd(handle, block, kXuIspCommand, kIspBlockSize, 1);
    if (result < 0) {
        return result;
    }
    result = AitXU_XuCmd(handle, block, kXuIspResult, kIspBlockSize, 0);
    if (result < 0) {
        return result;
    }
    constexpr unsigned char kStatusOk = 0;
    if (block[0] == kStatusOk) {
        memcpy(fwVer, block + 2, 6);
    }
    return result;  // also with an error status: callers see it by fwVer being unchanged
}

int WriteSensorReg(AitDevHandle* ait_handle, unsigned short addr, unsigned short val) {
    unsigned char block[kIspBlockSize] = {0x0A, 0x03};
    PutLe16(block + 2, addr);
    PutLe16(block + 4, val);
    return AitIspCmdSet(ait_handle, block);
}

int ReadSensorReg(AitDevHandle* ait_handle, unsigned short addr, unsigned short* val) {
    unsigned char block[kIspBlockSize] = {0x0A, 0x02};
    PutLe16(block + 2, addr);
    const int result = AitIspCmdSet(ait_handle, block);
    if (result < 0) {
        return result;
    }
    AitIspCmdGetResult(ait_handle, block, kShortTimeoutMs);
    *val = GetLe16(block + 2);
    return 0;
}

int Set_TMK_TV_PreviewParam(AitDevHandle* ait_handle, uint8_t signal_type, uint8_t mode,
                            uint16_t crop_startX, uint16_t crop_startY, uint16_t crop_targetW,
                            uint16_t crop_targetH, uint16_t scale_targetW, uint16_t scale_targetH) {
    unsigned char block[kMmpBlockSize] = {0x01, signal_type, mode};
    const uint16_t numbers[] = {crop_startX,  crop_startY,   crop_targetW,
                                crop_targetH, scale_targetW, scale_targetH};
    unsigned char* to = block + 3;
    for (const uint16_t number : numbers) {
        PutLe16(to, number);
        to += 2;
    }
    return AitMMPCmdSet16(ait_handle, block);
}

int SetH264Bitrate(AitDevHandle* ait_handle, unsigned short Kbps) {
    unsigned char block[kIspBlockSize] = {0x08, 0xFF};
    PutLe16(block + 2, Kbps);
    return AitIspCmdSet(ait_handle, block);
}

int GetFD_Position(AitDevHandle* ait_handle, FacePositionList* face_pos_list) {
    if (ait_handle == nullptr) {
        return -1;
    }
    unsigned char reply[kFaceReplySize] = {};
    const int result = libusb_control_transfer_(ait_handle->handle, kVendorFromDevice, kGetFaces, 0,
                                                0, reply, kFaceReplySize, kShortTimeoutMs);
    // Parsed whatever the transfer returned. The count is the device's; the reply has room for ten.
    face_pos_list->num_face = reply[0];
    const int count = reply[0] < kFacesInReply ? reply[0] : kFacesInReply;
    for (int i = 0; i < count; ++i) {
        const unsigned char* from = reply + 1 + ptrdiff_t{8} * i;
        face_pos_list->face_rect[i] = {GetLe16(from), GetLe16(from + 2), GetLe16(from + 4),
                                       GetLe16(from + 6)};
    }
    if (result < 0) {
        AIT_LOG(1, "Failed to get fd pos array: 0x%X", Hex(result));
        return AIT_ERR_DEVICE;
    }
    return 0;
}

int SetFD_Param(AitDevHandle* ait_handle, FACE_CMD* fd_param) {
    if (ait_handle == nullptr) {
        return -1;
    }
    const int result = libusb_control_transfer_(
        ait_handle->handle, kVendorToDevice, kSetFaceParameter, 0, 0,
        reinterpret_cast<unsigned char*>(fd_param), sizeof *fd_param, kShortTimeoutMs);
    if (result < 0) {
        AIT_LOG(1, "Failed to set FD parameter 0x%X", Hex(result));
        return AIT_ERR_DEVICE;
    }
    return 0;
}

int GetPTZ_Pos(AitDevHandle* ait_handle, unsigned int axis, int* val) {
    const Axis* found = FindAxis(axis);
    if (ait_handle == nullptr || found == nullptr) {
        return -1;
    }
    unsigned char data[kPanTiltSize] = {};
    const int result = CameraTerminalTransfer(ait_handle, false, *found, data);
    switch (axis) {
        case kPanAbsolute:
            *val = static_cast<int>(GetLe32(data));
            break;
        case kTiltAbsolute:
            *val = static_cast<int>(GetLe32(data + 4));
            break;
        default:
            *val = GetLe16(data);
    }
    // Exactly 0, although a transfer answers its byte count: the value is the answer, the result
    // only advice. Callers depend on this sense.
    if (result != 0) {
        AIT_LOG(1, "GetPTZ_Pos is failed\r\n");
        return -1;
    }
    return 0;
}

int SetPTZ_Pos(AitDevHandle* ait_handle, unsigned int axis, int val) {
    if (ait_handle == nullptr) {
        return -1;
    }
    const Axis* found = FindAxis(axis);
    if (found == nullptr) {
        return AIT_ERR_DEVICE;
    }
    unsigned char data[kPanTiltSize] = {};
    int partner = 0;
    switch (axis) {
        case kPanAbsolute:
            GetPTZ_Pos(ait_handle, kTiltAbsolute, &partner);
            PutLe32(data, static_cast<uint32_t>(val));
            PutTiltOfPanCommand(data + 4, partner);
            break;
        case kTiltAbsolute:
            GetPTZ_Pos(ait_handle, kPanAbsolute, &partner);
            PutLe32(data, static_cast<uint32_t>(partner));
            PutLe32(data + 4, static_cast<uint32_t>(val));
            break;
        default:
            PutLe16(data, static_cast<uint16_t>(val));
    }
    if (CameraTerminalTransfer(ait_handle, true, *found, data) != 0) {
        AIT_LOG(1, "SetPTZ_Pos is failed\r\n");
        return -1;
    }
    return 0;
}
