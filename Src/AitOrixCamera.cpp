// Life cycle of the camera object.
#include "AitOrixCamera.h"

#include "CamDestroyFlag.h"
#include "aitdbg.h"
#include "aitshell.h"

pMutex m_observer_lock;
pMutex m_start_stop_preview_lock;
pMutex m_video_ctrl_lock;
pMutex m_audio_observer_lock;

CAitOrixCamera* g_pCamera = nullptr;
CCameraData* g_pData = nullptr;

namespace {
std::atomic<bool> m_bIsCamDestroy{false};
}

bool IsCamDestroy() {
    return m_bIsCamDestroy;
}

void SetCamDestroy(bool destroying) {
    m_bIsCamDestroy = destroying;
}

CAitOrixCamera::CAitOrixCamera() {
    m_State = CAM_STATE_CONNECTING;
    LoadDebugLevel();
    AIT_LOG(1, "CAitOrixCamera::CAitOrixCamera() construction.\r\n");
    m_VendorName = "TELMARK";
    m_ModelName = "TARLO";
    SetCamDestroy(false);
    const PlatformInfo& platform = DetectPlatform();
    m_nPlatform = platform.platform;
    mCurTvMode = platform.tvMode;
    m_videomode = platform.videoMode;
    m_SignalType = platform.signalType;
    if (mCurTvMode == USE_CAM_SIGNAL_TYPE) {
        AIT_LOG(1, "Use sinal type property\r\n");
    } else {
        AIT_LOG(1, "Use video mode property\r\n");
    }
    m_PowerFreq = ReadPowerFrequency();
    g_pCamera = this;
    g_pData = &m_Data;
    AIT_LOG(1, "exit CAitOrixCamera construction.\r\n");
}

CAitOrixCamera::~CAitOrixCamera() {
    AIT_LOG(4, "CAitOrixCamera::~CAitOrixCamera() destruction+.\r\n");
    g_pCamera = nullptr;  // also when this is the older of two objects
    while (DeleteLoader()) {
        // the host's callback may have started another one meanwhile
    }
    if (video_capturer != nullptr || audio_capturer != nullptr) {
        CAitOrixCamera::StopRecording();
        // A host that set the state to disconnected by itself keeps StopRecording from the video
        // thread.
        StopAudioThread();
        StopVideoThread();
        delete video_capturer.exchange(nullptr);
        delete audio_capturer.exchange(nullptr);
    }
    AITCAM_ExecuteShell("rm -rf /dtv/cm_cam_version");
    AIT_LOG(1, "CAitOrixCamera::~CAitOrixCamera() destruction-.\r\n");
}

CAM_STATE CAitOrixCamera::GetState() {
    AIT_LOG(4, "Get status=%d\r\n", static_cast<int>(m_State.load()));
    return m_State;
}

bool CAitOrixCamera::StartTest() {
    AIT_LOG(4, "CAitOrixCamera::StartTest() Not support now.\r\n");
    return true;
}

bool CAitOrixCamera::StopTest() {
    AIT_LOG(4, "CAitOrixCamera::StopTest() Not support now.\r\n");
    return true;
}

bool CAitOrixCamera::PrintStatus() {
    AIT_LOG(4, "CAitOrixCamera::PrintStatus() Not support now.\r\n");
    return true;
}
