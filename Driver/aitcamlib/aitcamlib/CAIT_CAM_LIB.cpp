#include "CAIT_CAM_LIB.h"

#include <unistd.h>

#include "EngineThread.h"
#include "aitdbg.h"

namespace {
constexpr useconds_t kThreadStartUs = 30000;
}

CAIT_CAM_LIB::CAIT_CAM_LIB() : pThread(false, -1) {}

CAIT_CAM_LIB::~CAIT_CAM_LIB() {
    AIT_LOG(4, "CAIT_CAM_LIB::~CAIT_CAM_LIB()+\r\n");
    pThread::Stop();
    AIT_LOG(4, "CAIT_CAM_LIB::~CAIT_CAM_LIB()-\r\n");
}

int CAIT_CAM_LIB::EnableStream(int formatIndex, int frameIndex, int fps) {
    const int result = UVC_EnableVideoStream(formatIndex, frameIndex, fps);
    if (result >= 0 && VideoTransferStart() != 0) {
        UVC_DisableVideoStream();
        return -1;
    }
    return result;
}

int CAIT_CAM_LIB::DisableStream() {
    if (IsStreaming) {
        AIT_LOG(4, "UVC_DisableVideoStream +\r\n");
        UVC_DisableVideoStream();
        AIT_LOG(4, "UVC_DisableVideoStream -\r\n");
        AIT_LOG(4, "VideoTransferStop +\r\n");
        VideoTransferStop();
        AIT_LOG(4, "VideoTransferStop -\r\n");
    }
    if (m_pDevH != nullptr) {
        SelectAltSetting(kStreamInterface, 0);
    }
    return 0;
}

int CAIT_CAM_LIB::VideoTransferStart() {
    m_ExitThread = 0;
    if (!Start("ait-video-usb")) {
        return -1;
    }
    usleep(kThreadStartUs);  // the caller goes on with a running thread
    return 0;
}

int CAIT_CAM_LIB::VideoTransferStop() {
    AIT_LOG(4, "pthread_cancel+\n");
    Stop();
    AIT_LOG(4, "pthread_cancel-\n");
    return 0;
}

void CAIT_CAM_LIB::Run() {
    RunEngineEvents(*this, Shutdown);
}
