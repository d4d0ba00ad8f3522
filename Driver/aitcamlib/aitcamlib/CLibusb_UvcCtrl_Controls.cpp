// Control requests of the video engine: vendor commands through the extension unit, camera-terminal
// and processing-unit controls. All go to the interface (request types 0x21 and 0xA1).
#include "CLibusb_UvcCtrl.h"
#include "CameraTerminal.h"
#include "LibusbWrap.h"
#include "LittleEndian.h"
#include "UvcRequests.h"
#include "VendorCommands.h"

int CLibUSB_UvcCtrl::UVC_query_ctrl(unsigned char request, unsigned char unit,
                                    unsigned char interface, unsigned char selector, void* data,
                                    unsigned short length, int timeout) {
    if (m_pDevH == nullptr) {
        return -1;
    }
    const auto requestType =
        static_cast<uint8_t>((request & usb::kDirectionIn) | usb::kClassToInterface);
    const int result = NoteResult(libusb_control_transfer_(
        m_pDevH, requestType, request, static_cast<uint16_t>(selector << 8),
        static_cast<uint16_t>((unit << 8) | interface), static_cast<unsigned char*>(data), length,
        static_cast<unsigned int>(timeout)));
    return result < 0 ? AIT_ERR_DEVICE : result;
}

int CLibUSB_UvcCtrl::AitISPCommand(unsigned char* cmd8, unsigned char*) {
    return AitCommandSend(xu::kIsp.command, cmd8, xu::kIsp.size);
}

int CLibUSB_UvcCtrl::AitCommandSend(unsigned char selector, unsigned char* data,
                                    unsigned char length) {
    return UVC_query_ctrl(uvc::kSetCur, uvc::kExtensionUnit, kControlInterface, selector, data,
                          length, uvc::kTimeoutMs);
}

int CLibUSB_UvcCtrl::AitCommandGet(unsigned char selector, unsigned char* data,
                                   unsigned char length) {
    return UVC_query_ctrl(uvc::kGetCur, uvc::kExtensionUnit, kControlInterface, selector, data,
                          length, uvc::kTimeoutMs);
}

bool CLibUSB_UvcCtrl::SetBitrate(uint16_t rate) {
    xu::Block block(xu::kBitrate);
    PutLe16(block.Value(), rate);
    return AitISPCommand(block.bytes, nullptr) > 0;
}

bool CLibUSB_UvcCtrl::SetFramerate(uint16_t fps) {
    xu::Block block(xu::kFrameRate);
    PutLe16(block.Value(), fps);
    return AitISPCommand(block.bytes, nullptr) > 0;
}

bool CLibUSB_UvcCtrl::RequestKeyFrame() {
    xu::Block block(xu::kKeyFrame);
    return AitISPCommand(block.bytes, nullptr) > 0;
}

bool CLibUSB_UvcCtrl::GetPTZ(unsigned int id, int* value) {
    const CameraAxis* axis = FindCameraAxis(id);
    if (axis == nullptr) {
        return false;
    }
    unsigned char data[kLargestAxisControl] = {};
    const int result = UVC_query_ctrl(uvc::kGetCur, uvc::kCameraTerminal, kControlInterface,
                                      axis->selector, data, axis->length, uvc::kTimeoutMs);
    *value = GetPosition(*axis, data);
    return result >= 0;
}

bool CLibUSB_UvcCtrl::SetPTZ(unsigned int id, int value) {
    const CameraAxis* axis = FindCameraAxis(id);
    if (axis == nullptr) {
        return false;
    }
    unsigned char data[kLargestAxisControl] = {};
    if (axis->partner != 0) {
        // Pan and tilt travel together: the other one is sent as the camera reports it.
        int partnerPosition = 0;
        GetPTZ(axis->partner, &partnerPosition);
        PutPosition(*FindCameraAxis(axis->partner), data, partnerPosition);
    }
    PutPosition(*axis, data, value);
    return UVC_query_ctrl(uvc::kSetCur, uvc::kCameraTerminal, kControlInterface, axis->selector,
                          data, axis->length, uvc::kTimeoutMs) >= 0;
}

bool CLibUSB_UvcCtrl::SetPU(unsigned int selector, int value) {
    const unsigned char length = uvc::PuLength(selector);
    if (length == 0) {
        return false;
    }
    unsigned char data[2];
    PutLe16(data, static_cast<uint16_t>(value));
    return UVC_query_ctrl(uvc::kSetCur, uvc::kProcessingUnit, kControlInterface,
                          static_cast<unsigned char>(selector), data, length, uvc::kTimeoutMs) >= 0;
}
