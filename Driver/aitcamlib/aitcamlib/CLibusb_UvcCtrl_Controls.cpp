// Control requests of the video engine: vendor commands through the extension unit, camera-terminal
// and processing-unit controls. All go to the interface (request types 0x21 and 0xA1).
#include "CLibusb_UvcCtrl.h"
#include "LibusbWrap.h"
#include "LittleEndian.h"
#include "UvcRequests.h"

namespace {

constexpr unsigned char kIspCommandSelector = 1;
constexpr int kIspCommandSize = 8;
constexpr unsigned char kRequestTypeClassInterface = 0x21;
constexpr unsigned char kRequestTypeIn = 0x80;

/// One axis of the camera terminal.
struct PtzAxis {
    unsigned int id;  // V4L2 control identifier
    unsigned char selector;
    unsigned char length;
    unsigned char offset;  // of this axis' bytes in the control
    unsigned int partner;  // axis that shares the control, 0 for none
};

constexpr unsigned int kPanAbsolute = 0x009A0908;
constexpr unsigned int kTiltAbsolute = 0x009A0909;
constexpr unsigned int kFocusAbsolute = 0x009A090A;
constexpr unsigned int kZoomAbsolute = 0x009A090D;
constexpr int kPanTiltSize = 8;

constexpr PtzAxis kPtzAxes[] = {
    {kPanAbsolute, uvc::kCtPanTiltAbsolute, kPanTiltSize, 0, kTiltAbsolute},
    {kTiltAbsolute, uvc::kCtPanTiltAbsolute, kPanTiltSize, 4, kPanAbsolute},
    {kFocusAbsolute, uvc::kCtFocusAbsolute, 2, 0, 0},
    {kZoomAbsolute, uvc::kCtZoomAbsolute, 2, 0, 0},
};

const PtzAxis* FindAxis(unsigned int id) {
    for (const PtzAxis& axis : kPtzAxes) {
        if (axis.id == id) {
            return &axis;
        }
    }
    return nullptr;
}

/// Bytes of each processing-unit control (UVC 1.00, A.9.5); 0: not settable from here.
constexpr unsigned char kPuLength[] = {
    0,  // 0  undefined
    2,  // 1  backlight compensation
    2,  // 2  brightness
    2,  // 3  contrast
    0,  // 4  gain, deliberately left to the camera
    1,  // 5  power line frequency
    2,  // 6  hue
    2,  // 7  saturation
    2,  // 8  sharpness
    2,  // 9  gamma
    2,  // 10 white balance temperature
    1,  // 11 white balance temperature auto
};

}  // namespace

int CLibUSB_UvcCtrl::UVC_query_ctrl(unsigned char request, unsigned char unit,
                                    unsigned char interface, unsigned char selector, void* data,
                                    unsigned short length, int timeout) {
    if (m_pDevH == nullptr) {
        return -1;
    }
    const auto requestType =
        static_cast<uint8_t>((request & kRequestTypeIn) | kRequestTypeClassInterface);
    const int result = NoteResult(libusb_control_transfer_(
        m_pDevH, requestType, request, static_cast<uint16_t>(selector << 8),
        static_cast<uint16_t>((unit << 8) | interface), static_cast<unsigned char*>(data), length,
        static_cast<unsigned int>(timeout)));
    return result < 0 ? AIT_ERR_DEVICE : result;
}

int CLibUSB_UvcCtrl::AitISPCommand(unsigned char* cmd8, unsigned char*) {
    return AitCommandSend(kIspCommandSelector, cmd8, kIspCommandSize);
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
    unsigned char command[kIspCommandSize] = {0x08, 0xFF};
    PutLe16(command + 2, rate);
    return AitISPCommand(command, nullptr) > 0;
}

bool CLibUSB_UvcCtrl::SetFramerate(uint16_t fps) {
    unsigned char command[kIspCommandSize] = {0x02};
    PutLe16(command + 1, fps);
    return AitISPCommand(command, nullptr) > 0;
}

bool CLibUSB_UvcCtrl::RequestKeyFrame() {
    unsigned char command[kIspCommandSize] = {0x04};
    return AitISPCommand(command, nullptr) > 0;
}

bool CLibUSB_UvcCtrl::GetPTZ(unsigned int id, int* value) {
    const PtzAxis* axis = FindAxis(id);
    if (axis == nullptr) {
        return false;
    }
    unsigned char data[kPanTiltSize] = {};
    const int result = UVC_query_ctrl(uvc::kGetCur, uvc::kCameraTerminal, kControlInterface,
                                      axis->selector, data, axis->length, uvc::kTimeoutMs);
    *value = axis->length == kPanTiltSize ? static_cast<int>(GetLe32(data + axis->offset))
                                          : GetLe16(data);
    return result >= 0;
}

bool CLibUSB_UvcCtrl::SetPTZ(unsigned int id, int value) {
    const PtzAxis* axis = FindAxis(id);
    if (axis == nullptr) {
        return false;
    }
    unsigned char data[kPanTiltSize] = {};
    if (axis->partner != 0) {
        // Pan and tilt travel together: the other one is sent as the camera reports it.
        int partnerValue = 0;
        GetPTZ(axis->partner, &partnerValue);
        PutLe32(data + FindAxis(axis->partner)->offset, static_cast<uint32_t>(partnerValue));
        PutLe32(data + axis->offset, static_cast<uint32_t>(value));
    } else {
        PutLe16(data, static_cast<uint16_t>(value));
    }
    return UVC_query_ctrl(uvc::kSetCur, uvc::kCameraTerminal, kControlInterface, axis->selector,
                          data, axis->length, uvc::kTimeoutMs) >= 0;
}

bool CLibUSB_UvcCtrl::SetPU(unsigned int selector, int value) {
    if (selector >= sizeof kPuLength || kPuLength[selector] == 0) {
        return false;
    }
    unsigned char data[2];
    PutLe16(data, static_cast<uint16_t>(value));
    return UVC_query_ctrl(uvc::kSetCur, uvc::kProcessingUnit, kControlInterface,
                          static_cast<unsigned char>(selector), data, kPuLength[selector],
                          uvc::kTimeoutMs) >= 0;
}
