// See the header: nothing in the plug-in calls these.
#include "AitXu_Bench.h"

#include <stddef.h>

#include "AitXu.h"
#include "CameraTerminal.h"
#include "LibusbWrap.h"
#include "LittleEndian.h"
#include "UvcRequests.h"
#include "aitdbg.h"

namespace {

constexpr int kShortTimeoutMs = 500;
constexpr int kLongTimeoutMs = 1000;

constexpr int kFacesInReply = 10;
constexpr int kFaceReplySize = 1 + kFacesInReply * 8;

unsigned int Hex(int error) {
    return static_cast<unsigned int>(error);
}

int AxisRequest(AitDevHandle* device, bool set, const CameraAxis& axis, unsigned char* data) {
    return AitXU_Request(device, set, uvc::kCameraTerminal, axis.selector, data, axis.length,
                         kShortTimeoutMs);
}

/// Puts the axis that shares the control there as the camera reports it. Beside a pan the upper half
/// of the tilt goes out as two flags instead of its bytes. This is how the camera's pan command is
/// built on this road; sending the tilt whole would be another command.
void PutPartner(AitDevHandle* device, const CameraAxis& axis, unsigned char* control) {
    const CameraAxis& partner = *FindCameraAxis(axis.partner);
    int position = 0;
    GetPTZ_Pos(device, partner.id, &position);
    PutPosition(partner, control, position);
    if (axis.id == kPanAbsolute) {
        unsigned char* upperHalf = control + partner.offset + 2;
        const auto bits = static_cast<uint32_t>(position);
        upperHalf[0] = (bits >> 16) != 0 ? 1 : 0;
        upperHalf[1] = (bits >> 24) != 0 ? 1 : 0;
    }
}

}  // namespace

int AitIspCmdSet(AitDevHandle* ait_handle, unsigned char* cmd) {
    if (ait_handle == nullptr) {
        return -1;
    }
    const int result = AitXU_Request(ait_handle, true, uvc::kExtensionUnit, xu::kIsp.command, cmd,
                                     xu::kIsp.size, kShortTimeoutMs);
    if (result < 0) {
        AIT_LOG(1, "AitIspCmdSet failed : 0x%X", Hex(result));
        return result;
    }
    return 0;
}

int AitMMPCmdSet16(AitDevHandle* ait_handle, unsigned char* cmd) {
    if (ait_handle == nullptr) {
        return -1;
    }
    AitXU_Request(ait_handle, true, uvc::kExtensionUnit, xu::kMmp.command, cmd, xu::kMmp.size,
                  kLongTimeoutMs);
    return 0;
}

int AitMMPCmdGetResult16(AitDevHandle* ait_handle, unsigned char* cmd) {
    if (ait_handle == nullptr) {
        return -1;
    }
    const int result = AitXU_Request(ait_handle, false, uvc::kExtensionUnit, xu::kMmp.result, cmd,
                                     xu::kMmp.size, kShortTimeoutMs);
    if (result < 0) {
        AIT_LOG(1, "AitIspCmdGet failed : 0x%X", Hex(result));
        return result;
    }
    return 0;
}

int AitXU_GetVideoOption(AitDevHandle* handle, unsigned int* options) {
    if (handle == nullptr) {
        return -1;
    }
    xu::Block block(xu::kReadVideoOption);
    const int result = AitXU_Query(handle, block);
    if (result < 0) {
        return result;
    }
    // Bytes 1 and 2 unshifted and byte 3 by 12: not the mirror image of the set command and not to
    // be made one, callers of this function know the word in this form.
    const unsigned char* answer = block.bytes;
    *options = answer[1] + answer[2] + (static_cast<unsigned int>(answer[3]) << 12) +
               (static_cast<unsigned int>(answer[4]) << 24);
    return 0;
}

int AitXU_SetVideoOption(AitDevHandle* handle, unsigned int options) {
    if (handle == nullptr) {
        return -1;
    }
    xu::Block block(xu::kWriteVideoOption);
    PutLe32(block.Value(), options);
    return AitXU_SendBlock(handle, block);
}

int WriteSensorReg(AitDevHandle* ait_handle, unsigned short addr, unsigned short val) {
    xu::Block block(xu::kWriteSensorRegister);
    PutLe16(block.Value(), addr);
    PutLe16(block.Value() + 2, val);
    return AitIspCmdSet(ait_handle, block.bytes);
}

int ReadSensorReg(AitDevHandle* ait_handle, unsigned short addr, unsigned short* val) {
    xu::Block block(xu::kReadSensorRegister);
    PutLe16(block.Value(), addr);
    const int result = AitIspCmdSet(ait_handle, block.bytes);
    if (result < 0) {
        return result;
    }
    AitIspCmdGetResult(ait_handle, block.bytes, kShortTimeoutMs);
    *val = GetLe16(block.bytes + 2);
    return 0;
}

int Set_TMK_TV_PreviewParam(AitDevHandle* ait_handle, uint8_t signal_type, uint8_t mode,
                            uint16_t crop_startX, uint16_t crop_startY, uint16_t crop_targetW,
                            uint16_t crop_targetH, uint16_t scale_targetW, uint16_t scale_targetH) {
    xu::Block block(xu::kPreviewParameters, signal_type);
    block.Value()[1] = mode;
    const uint16_t numbers[] = {crop_startX,  crop_startY,   crop_targetW,
                                crop_targetH, scale_targetW, scale_targetH};
    unsigned char* to = block.Value() + 2;
    for (const uint16_t number : numbers) {
        PutLe16(to, number);
        to += 2;
    }
    return AitMMPCmdSet16(ait_handle, block.bytes);
}

int SetH264Bitrate(AitDevHandle* ait_handle, unsigned short Kbps) {
    xu::Block block(xu::kBitrate);
    PutLe16(block.Value(), Kbps);
    return AitIspCmdSet(ait_handle, block.bytes);
}

int GetFD_Position(AitDevHandle* ait_handle, FacePositionList* face_pos_list) {
    if (ait_handle == nullptr) {
        return -1;
    }
    unsigned char reply[kFaceReplySize] = {};
    const int result =
        libusb_control_transfer_(ait_handle->handle, usb::kVendorFromDevice, vendor::kGetFaces, 0,
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
        ait_handle->handle, usb::kVendorToDevice, vendor::kSetFaceParameter, 0, 0,
        reinterpret_cast<unsigned char*>(fd_param), sizeof *fd_param, kShortTimeoutMs);
    if (result < 0) {
        AIT_LOG(1, "Failed to set FD parameter 0x%X", Hex(result));
        return AIT_ERR_DEVICE;
    }
    return 0;
}

int GetPTZ_Pos(AitDevHandle* ait_handle, unsigned int axis, int* val) {
    const CameraAxis* found = FindCameraAxis(axis);
    if (ait_handle == nullptr || found == nullptr) {
        return -1;
    }
    unsigned char data[kLargestAxisControl] = {};
    const int result = AxisRequest(ait_handle, false, *found, data);
    *val = GetPosition(*found, data);
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
    const CameraAxis* found = FindCameraAxis(axis);
    if (found == nullptr) {
        return AIT_ERR_DEVICE;
    }
    unsigned char data[kLargestAxisControl] = {};
    if (found->partner != 0) {
        PutPartner(ait_handle, *found, data);
    }
    PutPosition(*found, data, val);
    if (AxisRequest(ait_handle, true, *found, data) != 0) {
        AIT_LOG(1, "SetPTZ_Pos is failed\r\n");
        return -1;
    }
    return 0;
}
