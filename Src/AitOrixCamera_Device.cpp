// The camera object's device commands (any block, video option word, light), and whether there is a
// device to take them.
#include "AitOrixCamera.h"
#include "LibusbWrap.h"
#include "LittleEndian.h"
#include "aitdbg.h"

bool CAitOrixCamera::HasCapturer() const {
    return video_capturer != nullptr && m_State != CAM_STATE_DISCONNECTED;
}

bool CAitOrixCamera::CheckCapturer(LogAs AitLogName) const {
    if (!HasCapturer()) {
        LogNoCapturer(AitLogName);
        return false;
    }
    return true;
}

void CAitOrixCamera::LogNoCapturer(LogAs AitLogName) {
    AIT_LOG(1, "video_capturer is NULL or m_State is CAM_STATE_DISCONNECTED !!! \r\n");
}

int CAitOrixCamera::SendBlock(xu::Block block) {
    return video_capturer.load()->AitCommandSend(block.group.command, block.bytes,
                                                 block.group.size);
}

int CAitOrixCamera::ReadAnswer(xu::Block& block) {
    return video_capturer.load()->AitCommandGet(block.group.result, block.bytes, block.group.size);
}

int CAitOrixCamera::GetVideoOption(unsigned int* options) {
    xu::Block block(xu::kReadVideoOption);
    if (!CheckCapturer(LogAs(__func__))) {
        *options = 0;
        AIT_LOG(4, "GetVideoOption Failed !! return (%d)", 0);
        return AIT_ERR_DEVICE;
    }
    int result = SendBlock(block);
    if (result >= 0) {
        result = ReadAnswer(block);
    }
    if (result < 0) {
        AIT_LOG(4, "GetVideoOption Failed !! return (%d)", result);
        return AIT_ERR_DEVICE;
    }
    *options = GetLe32(block.bytes + 1);
    AIT_LOG(4, "GetVideoOption = 0x%X", *options);
    return 0;
}

int CAitOrixCamera::SetVideoOption(unsigned int options) {
    if (!CheckCapturer(LogAs(__func__))) {
        return -1;
    }
    xu::Block block(xu::kWriteVideoOption);
    PutLe32(block.Value(), options);
    AIT_LOG(4, "SetVideoOption = 0x%X", options);
    return SendBlock(block);
}

bool CAitOrixCamera::TurnOnOffLED(unsigned char on) {
    if (!CheckCapturer(LogAs(__func__))) {
        return false;
    }
    return SendBlock(xu::Block(xu::kLight, on)) >= 0;
}
