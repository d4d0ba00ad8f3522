#include "AitXu.h"

#include <string.h>

#include "LibusbWrap.h"
#include "UvcRequests.h"
#include "aitdbg.h"

namespace {
constexpr int kTimeoutMs = 1000;
}

int AitXU_Request(AitDevHandle* ait_handle, bool set, uint8_t entity, uint8_t selector,
                  unsigned char* data, uint16_t length, int timeout) {
    return libusb_control_transfer_(
        ait_handle->handle, set ? usb::kClassToDevice : usb::kClassFromDevice,
        set ? uvc::kSetCur : uvc::kGetCur, static_cast<uint16_t>(selector << 8),
        static_cast<uint16_t>(entity << 8), data, length, static_cast<unsigned int>(timeout));
}

int AitIspCmdGetResult(AitDevHandle* ait_handle, unsigned char* cmd, int timeout) {
    if (ait_handle == nullptr) {
        return -1;
    }
    const int result = AitXU_Request(ait_handle, false, uvc::kExtensionUnit, xu::kIsp.result, cmd,
                                     xu::kIsp.size, timeout);
    if (result < 0) {
        AIT_LOG(1, "AitIspCmdGet failed : 0x%X", static_cast<unsigned int>(result));
        return result;
    }
    return 0;
}

int AitXU_XuCmd(AitDevHandle* ait_handle, unsigned char* cmd, uint16_t cs, uint8_t len,
                int direction) {
    if (ait_handle == nullptr) {
        return AIT_ERR_DEVICE;
    }
    const int result = AitXU_Request(ait_handle, direction != kFromCamera, uvc::kExtensionUnit,
                                     static_cast<uint8_t>(cs), cmd, len, kTimeoutMs);
    if (result < 0) {
        AIT_LOG(1, "AitXUCmd failed : 0x%X", static_cast<unsigned int>(result));
        return result;
    }
    return 0;
}

int AitXU_SendBlock(AitDevHandle* ait_handle, xu::Block block) {
    return AitXU_XuCmd(ait_handle, block.bytes, block.group.command, block.group.size, kToCamera);
}

int AitXU_ReadAnswer(AitDevHandle* ait_handle, xu::Block& block) {
    return AitXU_XuCmd(ait_handle, block.bytes, block.group.result, block.group.size, kFromCamera);
}

int AitXU_Query(AitDevHandle* ait_handle, xu::Block& block) {
    const int result = AitXU_SendBlock(ait_handle, block);
    return result < 0 ? result : AitXU_ReadAnswer(ait_handle, block);
}

int AitXU_GetFWVersion(AitDevHandle* handle, unsigned char* fwVer) {
    if (handle == nullptr) {
        return -1;
    }
    xu::Block block(xu::kFirmwareVersion);
    const int result = AitXU_Query(handle, block);
    if (result < 0) {
        return result;
    }
    constexpr unsigned char kStatusOk = 0;
    if (block.bytes[0] == kStatusOk) {
        memcpy(fwVer, block.bytes + 2, 6);
    }
    return result;  // also with an error status: callers see it by fwVer being unchanged
}
