// Recording control: start and stop of the whole pipeline, in the order that the camera needs.
#include <unistd.h>

#include <new>

#include "AitOrixCamera.h"
#include "CameraIdentity.h"
#include "aitdbg.h"

namespace {

constexpr uint32_t kMultiplexedPixFmt = 0;
constexpr int kStreamRate = 30;  // whatever m_nCurrentFPS says: the encoder's rate is set apart
constexpr int kBitsPerKilobit = 1000;
constexpr uint32_t kSubBitrate = 800;  // kbit/s
constexpr uint32_t kSubRate = 15;      // frames/s
constexpr uint32_t kSubRateTenchP = 30;
constexpr int kCallModeBitrate = 1500000;  // bit/s; hosts mark a call of their own with it
constexpr uint8_t kChannels = 2;
constexpr useconds_t kAfterAudioUs = 10000;
constexpr useconds_t kRestartPauseUs = 30000;

constexpr unsigned char kCodeDualH264 = 7;
constexpr unsigned char kCodeH264Jpeg = 8;

const char* SignalTypeName(CAM_SIGNAL_TYPE type) {
    static const char* const kNames[] = {
        "CAM_SIGNAL_H264_YUYV",      "CAM_SIGNAL_H264_GRAY", "CAM_SIGNAL_GRAY",
        "CAM_SIGNAL_H264_H264_GRAY", "CAM_SIGNAL_H264_NV21", "CAM_SIGNAL_H264_GRAY_JPEG",
        "CAM_SIGNAL_H264_GRAY_SI",   "CAM_SIGNAL_H264_H264", "CAM_SIGNAL_H264_MJPEG",
    };
    const auto index = static_cast<unsigned int>(type);
    return index < sizeof kNames / sizeof kNames[0] ? kNames[index] : nullptr;
}

}  // namespace

bool CAitOrixCamera::StartRecording() {
    if (RefuseInsideUpdate(LogAs(__func__))) {
        return false;
    }
    pMutexLock startStopLock(m_start_stop_preview_lock);
    pMutexLock controlLock(m_video_ctrl_lock);
    if (m_State != CAM_STATE_READY) {
        AIT_LOG(1, "StartRecording twice\r\n");
        return true;
    }
    AIT_LOG(4, "CAitOrixCamera::StartRecording\r\n");
    AIT_LOG(1, "CAitOrixCamera::StartRecording open device VID=0x%X, PID=0x%X W=%d H=%d\r\n",
            kCameraVendorId, kRunTimeProductId, m_nCurrentW, m_nCurrentH);
    if (video_capturer == nullptr) {
        AIT_LOG(1, "CAitOrixCamera::StartRecording, Can't open video break\r\n");
        return false;
    }
    SelectStreamCombination();
    SetStreamTarget(xu::kMainStream);
    StopVideoThread();  // one that a start left behind when its audio step failed
    if (!OpenVideoStream()) {
        return false;
    }
    SetStreamRates();
    ApplyAntiFlickerOnce();
    if (!StartVideoThread()) {
        return GiveUpStart();
    }
    if (!StartAudio()) {
        return false;  // the video thread runs on until the next stop; hosts expect that
    }
    if (!SetStateUnlessGone(CAM_STATE_PLAYING)) {
        return false;
    }
    TurnOnOffLED(1);
    return true;
}

void CAitOrixCamera::SelectStreamCombination() {
    if (mCurTvMode == USE_CAM_VIDEO_MODE) {
        SelectByVideoMode();
        ApplyCallModeOptions();
    } else if (mCurTvMode == USE_CAM_SIGNAL_TYPE) {
        SelectBySignalType();
    }
}

/// The two rules of the call mode are deliberately no mirror images of each other: each names its
/// own platform.
void CAitOrixCamera::SelectByVideoMode() {
    AIT_LOG_AS("StartRecording");
    const bool callBitrate = m_nCurrentBPS == kCallModeBitrate;
    switch (m_videomode) {
        case CAM_VIDEO_H264_H264:
            AIT_LOG(4, "Video mode is Dual H264\r\n");
            AIT_LOG(4, "Set TMK signal type = 0x07 \r\n");
            SendStreamCombination(kCodeDualH264);
            m_bSkypeCallMode = !(m_nPlatform == TENCH_P && callBitrate);
            break;
        case CAM_VIDEO_H264_MJPEG:
        case CAM_VIDEO_H264_JPEG:
            AIT_LOG(4, "Video mode is H264+JPEG\r\n");
            SendStreamCombination(kCodeH264Jpeg);
            m_bSkypeCallMode = m_nPlatform == TENCH_S && !callBitrate;
            break;
        default:
            AIT_LOG(4, "Unknown Video Mode\r\n");
    }
}

/// Call mode shows the caller mirrored on the local pictures, any other mode on the encoded ones.
void CAitOrixCamera::ApplyCallModeOptions() {
    AIT_LOG_AS("StartRecording");
    unsigned int lastOptions = 0;
    if (GetVideoOption(&lastOptions) != 0) {
        AIT_LOG(1, "GetVideoOption of StartRecording was Failed !!! \r\n");
        return;
    }
    constexpr unsigned int kLocalMirrors = xu::kLocalMirror | xu::kGrayMirror;
    const unsigned int options = m_bSkypeCallMode ? (lastOptions & ~xu::kMirror) | kLocalMirrors
                                                  : (lastOptions & ~kLocalMirrors) | xu::kMirror;
    AIT_LOG(4, "last_options = %X, cur_options = %X\r\n", lastOptions, options);
    SetVideoOption(options);
}

void CAitOrixCamera::SelectBySignalType() {
    AIT_LOG_AS("StartRecording");
    const char* name = SignalTypeName(m_SignalType);
    if (name == nullptr) {
        AIT_LOG(4, "Unknown Signal Type\r\n");
        SendStreamCombination(0);
        return;
    }
    AIT_LOG(4, "Signale Type = %s\r\n", name);
    SendStreamCombination(static_cast<unsigned char>(m_SignalType));
}

void CAitOrixCamera::SendStreamCombination(unsigned char code) {
    SendBlock(xu::Block(xu::kPreviewParameters, code));  // in mode kSelectStreams, 0
}

/// Directs the bit rate and frame rate that follow to one of the two H.264 streams.
void CAitOrixCamera::SetStreamTarget(xu::StreamTarget target) {
    AIT_LOG_AS("StartRecording");
    AIT_LOG(4, "Set stream target(ID)=%d\r\n", target);
    if (SendBlock(xu::Block(xu::kRateTarget, target)) < 0) {
        AIT_LOG(1, "Failed to set video mode.\r\n");
    }
}

bool CAitOrixCamera::OpenVideoStream() {
    AIT_LOG_AS("StartRecording");
    if (video_capturer.load()->ConfigureDev(static_cast<uint32_t>(m_nCurrentW),
                                            static_cast<uint32_t>(m_nCurrentH), kMultiplexedPixFmt,
                                            kStreamRate)) {
        return true;
    }
    AIT_LOG(1, "Failed to config device. W=%d,H=%d,Fmt=%d,Fps=%d\r\n", m_nCurrentW, m_nCurrentH, 0,
            kStreamRate);
    return false;
}

void CAitOrixCamera::SetStreamRates() {
    AitUvcCapture& video = *video_capturer;
    video.SetBitrate(static_cast<uint32_t>(m_nCurrentBPS / kBitsPerKilobit));
    video.SetFramerate(static_cast<uint32_t>(m_nCurrentFPS));
    if (m_nPlatform == TENCH_S) {
        return;
    }
    SetStreamTarget(xu::kSubStream);
    video.SetBitrate(kSubBitrate);
    video.SetFramerate(m_nPlatform == TENCH_P ? kSubRateTenchP : kSubRate);
    SetStreamTarget(xu::kMainStream);  // later changes of the rates address the main stream
}

void CAitOrixCamera::ApplyAntiFlickerOnce() {
    AIT_LOG_AS("StartRecording");
    if (m_bSetAntiFlicker || (m_PowerFreq != 1 && m_PowerFreq != 2)) {
        return;
    }
    if (SetFlicker(static_cast<unsigned char>(m_PowerFreq)) == 0) {
        AIT_LOG(4, "Succeed in setting flicker !!!\r\n");
        m_bSetAntiFlicker = true;
    } else {
        AIT_LOG(1, "Failed in setting flicker !!!\r\n");
    }
}

int CAitOrixCamera::SetFlicker(unsigned char frequency) {
    CAM_PROP_VALUE value;
    value.value = frequency;
    return SetProperty(CAM_PROPERTY_AUTO_HZ, &value) ? 0 : -1;
}

bool CAitOrixCamera::StartVideoThread() {
    capture_thread = new (std::nothrow) CVideoCaptureThread(video_capturer, this);
    if (capture_thread == nullptr) {
        return false;
    }
    capture_thread->SetSignalType(m_SignalType);
    capture_thread->SetSkypeCallMode(m_bSkypeCallMode);
    return capture_thread->Start("ait-video");
}

bool CAitOrixCamera::StartAudioThread() {
    audio_capture_thread = new (std::nothrow) CAudioCaptureThread(audio_capturer, this);
    return audio_capture_thread != nullptr && audio_capture_thread->Start("ait-audio");
}

/// Ends a start that got no memory or thread for its capture threads, without a trace of it: unlike
/// an audio step that failed, it leaves no video thread behind.
bool CAitOrixCamera::GiveUpStart() {
    AIT_LOG_AS("StartRecording");
    AIT_LOG(1, "No memory or thread for the capture threads.\r\n");
    StopAudioThread();
    if (audio_capturer != nullptr) {
        audio_capturer.load()->UnConfigureDev();
    }
    StopVideoThread();
    video_capturer.load()->UnConfigureDev();
    return false;
}

bool CAitOrixCamera::StartAudio() {
    AIT_LOG_AS("StartRecording");
    if (audio_capture_thread == nullptr) {
        AIT_LOG(4, "*********** Start Audio Capture Thread*************\r\n");
        if (audio_capturer == nullptr || m_State == CAM_STATE_DISCONNECTED) {
            // The text says video although it is about audio; log readers know it so.
            AIT_LOG(4, "CAitOrixCamera::StartRecording, Can't open video device , break\r\n");
            return false;
        }
        if (!audio_capturer.load()->ConfigureDev(kChannels, static_cast<uint32_t>(m_lastSampRate),
                                                 0)) {
            AIT_LOG(4, "Failed to open audio streaming.\r\n");
            return false;
        }
        if (!StartAudioThread()) {
            return GiveUpStart();
        }
        AIT_LOG(4, "*********** Audio Capture Thread Init finish.\r\n*************\r\n");
    }
    if (audio_capturer != nullptr) {
        audio_capturer.load()->SetVolume(m_lastMicVolume);
    }
    return true;
}

bool CAitOrixCamera::StopRecording() {
    if (RefuseInsideUpdate(LogAs(__func__))) {
        return false;
    }
    pMutexLock startStopLock(m_start_stop_preview_lock);
    pMutexLock controlLock(m_video_ctrl_lock);
    const StoppingMark stopping;
    AIT_LOG(1, "CAitOrixCamera::StopRecording\r\n");
    TurnOnOffLED(0);
    if (audio_capturer != nullptr) {
        if (audio_capture_thread != nullptr) {
            AIT_LOG(4, "CAitOrixCamera:: stop audio capture thread\r\n");
            StopAudioThread();
        }
        audio_capturer.load()->UnConfigureDev();
    }
    usleep(kAfterAudioUs);
    if (!HasCapturer()) {
        // CheckCapturer's text but for a blank; log readers know both.
        AIT_LOG(1, "video_capturer is NULL or m_State is CAM_STATE_DISCONNECTED !!!\r\n");
        return false;
    }
    if (capture_thread != nullptr) {
        AIT_LOG(4, "CAitOrixCamera:: stop video capture thread \r\n");
        StopVideoThread();
    }
    SendTerminateFrame();
    video_capturer.load()->UnConfigureDev();
    if (m_State != CAM_STATE_PLAYING) {
        AIT_LOG(1, "Abnormal StopRecording.\r\n");
        return false;
    }
    SetStateUnlessGone(CAM_STATE_READY);
    return true;
}

/// A disconnection that comes meanwhile stays: false then.
bool CAitOrixCamera::SetStateUnlessGone(CAM_STATE state) {
    CAM_STATE current = m_State;
    while (current != CAM_STATE_DISCONNECTED) {
        if (m_State.compare_exchange_weak(current, state)) {
            return true;
        }
    }
    return false;
}

/// Both results are ignored: the property that asks for it counts as applied.
void CAitOrixCamera::RestartRecording() {
    StopRecording();
    usleep(kRestartPauseUs);
    StartRecording();
}

void CAitOrixCamera::StopVideoThread() {
    if (capture_thread != nullptr) {
        const StoppingMark stopping;
        capture_thread->Stop();
        delete capture_thread;
        capture_thread = nullptr;
    }
}

void CAitOrixCamera::StopAudioThread() {
    if (audio_capture_thread != nullptr) {
        const StoppingMark stopping;
        audio_capture_thread->Stop();
        delete audio_capture_thread;
        audio_capture_thread = nullptr;
    }
}
