// The camera object's own device commands: video option word and light.
#include "AitOrixCamera.h"
#include "AitXu.h"
#include "ExtensionUnit.h"
#include "LibusbWrap.h"
#include "LittleEndian.h"
#include "aitdbg.h"

bool CAitOrixCamera::HasCapturer() const {
    return video_capturer != nullptr && m_State != CAM_STATE_DISCONNECTED;
}

int CAitOrixCamera::GetVideoOption(unsigned int* options) {
    unsigned char block[kMmpBlockSize] = {0x02, 0x01};
    if (!HasCapturer()) {
        *options = 0;
        AIT_LOG(1, "video_capturer is NULL or m_State is CAM_STATE_DISCONNECTED !!! \r\n");
        AIT_LOG(4, "GetVideoOption Failed !! return (%d)", 0);
        return AIT_ERR_DEVICE;
    }
    int result = video_capturer.load()->AitCommandSend(kXuMmpCommand, block, sizeof block);
    if (result >= 0) {
        result = video_capturer.load()->AitCommandGet(kXuMmpResult, block, sizeof block);
    }
    if (result < 0) {
        AIT_LOG(4, "GetVideoOption Failed !! return (%d)", result);
        return AIT_ERR_DEVICE;
    }
    *options = GetLe32(block + 1);
    AIT_LOG(4, "GetVideoOption = 0x%X", *options);
    return 0;
}

int CAitOrixCamera::SetVideoOption(unsigned int options) {
    if (!HasCapturer()) {
        AIT_LOG(1, "video_capturer is NULL or m_State is CAM_STATE_DISCONNECTED !!! \r\n");
        return -1;
    }
    unsigned char block[kMmpBlockSize] = {0x02, 0x02};
    PutLe32(block + 2, options);
    AIT_LOG(4, "SetVideoOption = 0x%X", options);
    return video_capturer.load()->AitCommandSend(kXuMmpCommand, block, sizeof block);
}

bool CAitOrixCamera::TurnOnOffLED(unsigned char on) {
    unsigned char block[kXuAuxBlockSize] = {0x0E, 0x00, on};
    if (!HasCapturer()) {
        AIT_LOG(1, "video_capturer is NULL or m_State is CAM_STATE_DISCONNECTED !!! \r\n");
        return false;
    }
    return video_capturer.load()->AitCommandSend(kXuAuxCommand, block, sizeof block) >= 0;
}
