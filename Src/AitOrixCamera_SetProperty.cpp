// Setting of properties: one table, a row for each property that is handled. A row holds the action
// and what the action needs; the actions that serve several properties are in PropertySetters.
#include <algorithm>

#include "AitOrixCamera.h"
#include "CameraTerminal.h"
#include "LittleEndian.h"
#include "UvcRequests.h"
#include "aitdbg.h"

namespace {

constexpr int kLargestBitrate = 17000000;       // bit/s
constexpr int kBitsPerUnit = 1024;              // the adapter's unit of bit rate here
constexpr unsigned int kLargestVolume = 100;    // percent
constexpr unsigned int kUnitsPerDegree = 3600;  // pan and tilt

constexpr uint16_t kCropSourceWidth = 1280;
constexpr uint16_t kCropSourceHeight = 960;

/// How a property call ends.
enum class Ending {
    kSuccess,     ///< log line, true
    kFailure,     ///< log line, false
    kQuietTrue,   ///< true without the line
    kQuietFalse,  ///< false without the line
};

Ending FromResult(bool result) {
    return result ? Ending::kSuccess : Ending::kFailure;
}

/// The adapter's transfers answer a byte count or a negative code: every non-zero answer, a code
/// included, counts as success, so that only a transfer of no bytes fails. Hosts rely on this test.
Ending FromTransfer(int result) {
    return FromResult(result != 0);
}

}  // namespace

struct PropertySetters {
    static AIT_LOG_AS("SetProperty");

    /// Mark of the rows that may restart recording: the whole call then holds the start/stop lock,
    /// which comes before the control lock. Without the mark a restart would take the two in the
    /// wrong order and wait for good for the firmware loader's thread, which stops recording by
    /// itself when the camera goes.
    enum Restarts { kRestarts };

    struct Row;
    typedef Ending (*Action)(CAitOrixCamera& camera, CAM_PROP_VALUE& param, const Row& row);

    struct Row {
        CAM_PROPERTY property;
        Action action;
        // What the action works on: an axis, a processing-unit control or option bits ...
        unsigned int number = 0;
        const xu::Command* command = nullptr;  // ... or a command
        bool restarts = false;                 // may restart recording

        constexpr Row(CAM_PROPERTY handled, Action does) : property(handled), action(does) {}
        constexpr Row(CAM_PROPERTY handled, Action does, Restarts)
            : property(handled), action(does), restarts(true) {}
        constexpr Row(CAM_PROPERTY handled, Action does, unsigned int on)
            : property(handled), action(does), number(on) {}
        constexpr Row(CAM_PROPERTY handled, Action does, const xu::Command& sent)
            : property(handled), action(does), command(&sent) {}
    };

    static const Row* Find(CAM_PROPERTY property);

    // --- actions of one property

    static Ending Bitrate(CAitOrixCamera& camera, CAM_PROP_VALUE& param, const Row&) {
        camera.m_nCurrentBPS = std::min(param.value, kLargestBitrate);
        AIT_LOG(4, "BITRATE: %d bps\r\n", camera.m_nCurrentBPS);
        if (!camera.CheckCapturer(AitLogName)) {
            return Ending::kFailure;
        }
        // Units of 1024 here, of 1000 at the start of recording: the camera has always got both.
        return FromResult(
            Video(camera).SetBitrate(static_cast<uint32_t>(camera.m_nCurrentBPS / kBitsPerUnit)));
    }

    static Ending Framerate(CAitOrixCamera& camera, CAM_PROP_VALUE& param, const Row&) {
        AIT_LOG(4, "FRAME RATE: %d fps\r\n", param.value);
        camera.m_nCurrentFPS = param.value;
        if (!camera.CheckCapturer(AitLogName)) {
            return Ending::kFailure;
        }
        return FromResult(Video(camera).SetFramerate(static_cast<uint32_t>(param.value)));
    }

    static Ending NewGop(CAitOrixCamera& camera, CAM_PROP_VALUE& param, const Row&) {
        AIT_LOG(4, "Force I: %d \r\n", param.value);
        if (!camera.CheckCapturer(AitLogName)) {
            return Ending::kFailure;
        }
        return FromResult(Video(camera).RequestKeyFrame());
    }

    static Ending Dimension(CAitOrixCamera& camera, CAM_PROP_VALUE& param, const Row&) {
        AIT_LOG(4, "RESOLUTION: w=%d, h=%d\r\n", param.res[0], param.res[1]);
        if (param.res[0] == camera.m_nCurrentW && param.res[1] == camera.m_nCurrentH) {
            AIT_LOG(1, "(%d x %d) is ignored!, Same setting!", camera.m_nCurrentW,
                    camera.m_nCurrentH);
            return Ending::kFailure;
        }
        // Kept for the next start also when nothing plays and the call fails.
        camera.m_nCurrentW = param.res[0];
        camera.m_nCurrentH = param.res[1];
        if (!IsPlaying(camera)) {
            return Ending::kFailure;
        }
        camera.RestartRecording();
        return Ending::kSuccess;
    }

    static Ending MicVolume(CAitOrixCamera& camera, CAM_PROP_VALUE& param, const Row&) {
        AIT_LOG(4, "MICVOLUME: %d\r\n", param.value);
        if (static_cast<unsigned int>(param.value) > kLargestVolume) {
            AIT_LOG(4, "Exceed Mic Volume Range.[%d]", param.value);
            return Ending::kSuccess;
        }
        if (camera.audio_capturer == nullptr || camera.m_State == CAM_STATE_DISCONNECTED) {
            CAitOrixCamera::LogNoCapturer(AitLogName);
            return Ending::kFailure;
        }
        if (!camera.audio_capturer.load()->SetVolume(param.value)) {
            AIT_LOG(4, "Fail set MIC volume!!!\r\n");
            return Ending::kFailure;
        }
        camera.m_lastMicVolume = param.value;
        return Ending::kSuccess;
    }

    static Ending SampleRate(CAitOrixCamera& camera, CAM_PROP_VALUE& param, const Row&) {
        AIT_LOG(4, "Set SAMPLERATE to (%d).", param.value);
        if (param.value != 16000 && param.value != 24000) {
            AIT_LOG(1, "Not supported SAMPLERATE.");
            return Ending::kSuccess;
        }
        const bool changed = camera.m_lastSampRate != param.value;
        camera.m_lastSampRate = param.value;
        if (changed && camera.audio_capturer != nullptr && camera.m_State == CAM_STATE_PLAYING) {
            camera.RestartRecording();
        }
        return Ending::kSuccess;
    }

    static Ending AutoHz(CAitOrixCamera& camera, CAM_PROP_VALUE& param, const Row&) {
        if (!camera.CheckCapturer(AitLogName)) {
            return Ending::kFailure;
        }
        if (param.value != 1 && param.value != 2) {
            return Ending::kSuccess;
        }
        // 1 is 60 Hz and 2 is 50 Hz here, the reverse of the class control's own numbers.
        const bool hz60 = param.value == 1;
        AIT_LOG(4, "cam frequency is %s", hz60 ? "60Hz" : "50Hz");
        return FromResult(Video(camera).SetPU(uvc::kPuPowerLineFrequency,
                                              hz60 ? uvc::kPowerLine60Hz : uvc::kPowerLine50Hz));
    }

    static Ending AutoFocus(CAitOrixCamera&, CAM_PROP_VALUE&, const Row&) {
        return Ending::kSuccess;
    }

    static Ending SignalType(CAitOrixCamera& camera, CAM_PROP_VALUE& param, const Row&) {
        AIT_LOG(4, "Set SIGNAL TYPE: %d\r\n", param.value);
        if (static_cast<unsigned int>(param.value) > CAM_SIGNAL_H264_MJPEG) {
            AIT_LOG(4, "Not support this format.\r\n");
            return Ending::kQuietTrue;
        }
        if (param.value == CAM_SIGNAL_H264_GRAY_JPEG) {
            param.value = CAM_SIGNAL_H264_GRAY_SI;
        }
        if (param.value == camera.m_SignalType) {
            AIT_LOG(4, "same signal type %d, %d\n", param.value, param.value);
            return Ending::kQuietTrue;
        }
        camera.m_SignalType = static_cast<CAM_SIGNAL_TYPE>(param.value);
        return RestartIfPlaying(camera);
    }

    static Ending VideoMode(CAitOrixCamera& camera, CAM_PROP_VALUE& param, const Row&) {
        AIT_LOG(4, "VIDEOMODE: %d\r\n", param.value);
        if (static_cast<unsigned int>(param.value) > CAM_VIDEO_H264_JPEG) {
            AIT_LOG(4, "Not support this format.\r\n");
            return Ending::kFailure;
        }
        camera.m_videomode = static_cast<CAM_VIDEO_MODE>(param.value);
        return RestartIfPlaying(camera);
    }

    /// Reads a register of the audio converter. The answer is in res[1]; the result is false even
    /// when all went well, and nothing that fails on the way stops the sequence.
    static Ending I2cReadAudio(CAitOrixCamera& camera, CAM_PROP_VALUE& param, const Row&) {
        Send(camera, xu::Block(xu::kAudioRegisterPreamble));
        xu::Block read(xu::kReadAudioRegister);
        PutHighByteFirst(read.Value(), param.res[0]);
        Send(camera, read);
        xu::Block answer(xu::kAux);
        if (camera.CheckCapturer(AitLogName)) {
            camera.ReadAnswer(answer);
        }
        param.res[1] = answer.bytes[2];
        return Ending::kQuietFalse;
    }

    static Ending I2cWriteAudio(CAitOrixCamera& camera, CAM_PROP_VALUE& param, const Row&) {
        Send(camera, xu::Block(xu::kAudioRegisterPreamble));
        xu::Block write(xu::kWriteAudioRegister);
        PutHighByteFirst(write.Value(), param.res[0]);
        write.Value()[2] = LowByte(param.res[1]);
        return Send(camera, write);
    }

    static Ending CropVga(CAitOrixCamera& camera, CAM_PROP_VALUE& param, const Row&) {
        const CropOrigin origin = TakeCropOrigin(camera, param);
        xu::Block block = PreviewParameters(camera);
        PutCropArea(block.Value() + 2, param);
        const Ending ending = Send(camera, block);
        AIT_LOG(4, "CAM_PROPERTY_CROP_VGA, x=%d, y=%d, w=%d, h=%d\r\n", origin.x, origin.y,
                kCropSourceWidth, kCropSourceHeight);
        return ending;
    }

    static Ending CropGray(CAitOrixCamera& camera, CAM_PROP_VALUE& param, const Row&) {
        const CropOrigin origin = TakeCropOrigin(camera, param);
        xu::Block block(xu::kGrayCrop, LowByte(static_cast<int>(camera.m_CropMode)));
        PutCropArea(block.Value() + 1, param);
        if (!camera.CheckCapturer(AitLogName)) {
            return Ending::kFailure;
        }
        const int result = camera.SendBlock(block);
        AIT_LOG(4, "CAM_PROPERTY_CROP_GRAY, x=%d, y=%d, w=%d, h=%d\r\n", origin.x, origin.y,
                kCropSourceWidth, kCropSourceHeight);
        return FromTransfer(result);
    }

    static Ending TriggerJpeg(CAitOrixCamera& camera, CAM_PROP_VALUE&, const Row&) {
        AIT_LOG(4, "TRIGGER_JPEG:\r\n");
        camera.m_bJpegTriggered = true;
        if (camera.mCurTvMode != USE_CAM_SIGNAL_TYPE) {
            return Ending::kSuccess;
        }
        return Send(camera, xu::Block(xu::kTriggerJpeg));
    }

    static Ending ThreeA(CAitOrixCamera& camera, CAM_PROP_VALUE& param, const Row&) {
        xu::Block block(xu::kThreeA);
        PutHighByteFirst(block.Value(), param.value);
        return Send(camera, block);
    }

    static Ending LocalMirror(CAitOrixCamera& camera, CAM_PROP_VALUE& param, const Row& row) {
        const bool grayToo = camera.m_SignalType == CAM_SIGNAL_H264_H264_GRAY;
        return ChangeOption(camera, param.value != 0,
                            grayToo ? row.number | xu::kGrayMirror : row.number);
    }

    static Ending DebugLevel(CAitOrixCamera& camera, CAM_PROP_VALUE& param, const Row&) {
        return FromResult(camera.SetDebugLevel(param.value));
    }

    static Ending FaceTracking(CAitOrixCamera& camera, CAM_PROP_VALUE& param, const Row&) {
        camera.m_CropMode = param.value != 0 ? xu::kFaceTrackingOn : xu::kFaceTrackingOff;
        camera.m_CurFaceTrackingStatus = LowByte(param.value);
        return Send(camera, PreviewParameters(camera));
    }

    static Ending LocalResolution(CAitOrixCamera& camera, CAM_PROP_VALUE& param, const Row&) {
        const xu::LocalView code = LocalViewCode(param.res[0], param.res[1]);
        AIT_LOG(4, "Local view Resolution Change: %dx%d (enum: %d)", param.res[0], param.res[1],
                code);
        if (camera.video_capturer != nullptr) {
            camera.SendBlock(xu::Block(xu::kLocalViewSize, code));
        }
        return Ending::kSuccess;
    }

    static Ending Nv12Resolution(CAitOrixCamera& camera, CAM_PROP_VALUE& param, const Row&) {
        AIT_LOG(1, " Set NV12 Resolution %s", param.value != 0 ? "864x486" : "640x480");
        if (camera.video_capturer == nullptr) {
            return Ending::kFailure;
        }
        return FromTransfer(camera.SendBlock(xu::Block(xu::kNv12Size, LowByte(param.value))));
    }

    // --- actions of several properties

    static Ending Zoom(CAitOrixCamera& camera, CAM_PROP_VALUE& param, const Row& row) {
        AIT_LOG(4, "ZOOM: %d\r\n", param.value);
        return MoveAxis(camera, row.number, param.value);
    }

    static Ending Pan(CAitOrixCamera& camera, CAM_PROP_VALUE& param, const Row& row) {
        AIT_LOG(4, "PAN: %d\r\n", param.value);
        return MoveAxis(camera, row.number, Degrees(param.value));
    }

    static Ending Tilt(CAitOrixCamera& camera, CAM_PROP_VALUE& param, const Row& row) {
        AIT_LOG(4, "TILT: %d\r\n", param.value);
        return MoveAxis(camera, row.number, Degrees(param.value));
    }

    static Ending ProcessingUnit(CAitOrixCamera& camera, CAM_PROP_VALUE& param, const Row& row) {
        if (!camera.CheckCapturer(AitLogName)) {
            return Ending::kFailure;
        }
        return FromResult(Video(camera).SetPU(row.number, param.value));
    }

    static Ending Option(CAitOrixCamera& camera, CAM_PROP_VALUE& param, const Row& row) {
        return ChangeOption(camera, param.value != 0, row.number);
    }

    /// A command with one value byte.
    static Ending Command(CAitOrixCamera& camera, CAM_PROP_VALUE& param, const Row& row) {
        return Send(camera, xu::Block(*row.command, LowByte(param.value)));
    }

    // --- helpers

    static AitUvcCapture& Video(CAitOrixCamera& camera) { return *camera.video_capturer; }

    static Ending Send(CAitOrixCamera& camera, const xu::Block& block) {
        if (!camera.CheckCapturer(AitLogName)) {
            return Ending::kFailure;
        }
        return FromTransfer(camera.SendBlock(block));
    }

    static unsigned char LowByte(int value) { return static_cast<unsigned char>(value); }
    /// 16 bits of it, unlike the other parameters of commands.
    static void PutHighByteFirst(unsigned char* to, int value) {
        to[0] = LowByte(static_cast<int>(static_cast<unsigned int>(value) >> 8));
        to[1] = LowByte(value);
    }

    static bool IsPlaying(const CAitOrixCamera& camera) {
        if (camera.video_capturer != nullptr && camera.m_State == CAM_STATE_PLAYING) {
            return true;
        }
        CAitOrixCamera::LogNoCapturer(AitLogName);
        return false;
    }

    /// Ending of the two selections of streams: it says nothing, whatever happens.
    static Ending RestartIfPlaying(CAitOrixCamera& camera) {
        if (!IsPlaying(camera)) {
            return Ending::kQuietFalse;
        }
        camera.RestartRecording();
        return Ending::kQuietTrue;
    }

    /// Degrees to the camera's 1/3600 degree, wrapping in 32 bits.
    static int Degrees(int value) {
        return static_cast<int>(static_cast<unsigned int>(value) * kUnitsPerDegree);
    }

    static Ending MoveAxis(CAitOrixCamera& camera, unsigned int axis, int position) {
        if (!camera.CheckCapturer(AitLogName)) {
            return Ending::kFailure;
        }
        return FromResult(Video(camera).SetPTZ(axis, position));
    }

    static Ending ChangeOption(CAitOrixCamera& camera, bool on, unsigned int bits) {
        unsigned int options = 0;
        if (camera.GetVideoOption(&options) != 0) {
            AIT_LOG(1, "GetVideoOption of SetProperty was Failed !!! \r\n");
            return Ending::kFailure;
        }
        camera.SetVideoOption(on ? options | bits : options & ~bits);
        return Ending::kSuccess;
    }

    /// Remembers the crop origin and answers it. A reset sends the origin 1,1 and tells the caller so, while 0,0
    /// is remembered; the camera and the hosts know the reset in this form.
    static CropOrigin TakeCropOrigin(CAitOrixCamera& camera, CAM_PROP_VALUE& param) {
        camera.m_CropMode = param.value == 0 ? xu::kCropOriginReset : xu::kCropOriginGiven;
        const CropOrigin origin = {static_cast<uint16_t>(param.res[0]),
                                   static_cast<uint16_t>(param.res[1])};
        camera.m_CurCropPos = origin;
        if (param.value == 0) {
            param.res[0] = 1;
            param.res[1] = 1;
        }
        return origin;
    }

    static xu::Block PreviewParameters(const CAitOrixCamera& camera) {
        xu::Block block(xu::kPreviewParameters, LowByte(camera.m_SignalType));
        block.Value()[1] = LowByte(static_cast<int>(camera.m_CropMode));
        return block;
    }

    static void PutCropArea(unsigned char* to, const CAM_PROP_VALUE& origin) {
        PutLe16(to, static_cast<uint16_t>(origin.res[0]));
        PutLe16(to + 2, static_cast<uint16_t>(origin.res[1]));
        PutLe16(to + 4, kCropSourceWidth);
        PutLe16(to + 6, kCropSourceHeight);
    }

    static xu::LocalView LocalViewCode(int width, int height) {
        if (width == 640 && height == 360) {
            return xu::kLocalView640x360;
        }
        return width == 800 && height == 450 ? xu::kLocalView800x450 : xu::kLocalViewOther;
    }
};

namespace {

typedef PropertySetters P;

constexpr P::Row kRows[] = {
    {CAM_PROPERTY_BITRATE, P::Bitrate},
    {CAM_PROPERTY_FRAMERATE, P::Framerate},
    {CAM_PROPERTY_NEWGOP, P::NewGop},
    {CAM_PROPERTY_DIMENSION, P::Dimension, P::kRestarts},
    {CAM_PROPERTY_MICVOLUME, P::MicVolume},
    {CAM_PROPERTY_SAMPLERATE, P::SampleRate, P::kRestarts},
    {CAM_PROPERTY_ZOOM, P::Zoom, kZoomAbsolute},
    {CAM_PROPERTY_PAN, P::Pan, kPanAbsolute},
    {CAM_PROPERTY_TILT, P::Tilt, kTiltAbsolute},
    {CAM_PROPERTY_AUTO_HZ, P::AutoHz},
    {CAM_PROPERTY_AUTO_FOCUS, P::AutoFocus},
    {CAM_PROPERTY_MIRROR, P::Option, xu::kMirror},
    {CAM_PROPERTY_FLIP, P::Option, xu::kFlip},
    {CAM_PROPERTY_FD_CONTROL, P::Option, xu::kFaceDetection},
    {CAM_PROPERTY_SIGNAL_TYPE, P::SignalType, P::kRestarts},
    {CAM_PROPERTY_I2C_READ_AUDIO, P::I2cReadAudio},
    {CAM_PROPERTY_I2C_WRITE_AUDIO, P::I2cWriteAudio},
    {CAM_PROPERTY_CROP_VGA, P::CropVga},
    {CAM_PROPERTY_TRIGGER_JPEG, P::TriggerJpeg},
    {CAM_PROPERTY_VIDEO_MODE, P::VideoMode, P::kRestarts},
    {CAM_PROPERTY_NV12_MODE_CONTROL, P::Command, xu::kNv12Mode},
    {CAM_PROPERTY_BRIGHTNESS, P::ProcessingUnit, uvc::kPuBrightness},
    {CAM_PROPERTY_CONTRAST, P::ProcessingUnit, uvc::kPuContrast},
    {CAM_PROPERTY_SATURATION, P::ProcessingUnit, uvc::kPuSaturation},
    {CAM_PROPERTY_SHARPNESS, P::ProcessingUnit, uvc::kPuSharpness},
    {CAM_PROPERTY_HUE, P::ProcessingUnit, uvc::kPuHue},
    {CAM_PROPERTY_GAMMA, P::ProcessingUnit, uvc::kPuGamma},
    {CAM_PROPERTY_BACKLIGHT_CONTROL, P::ProcessingUnit, uvc::kPuBacklightCompensation},
    {CAM_PROPERTY_AWB_TEMPERATURE, P::ProcessingUnit, uvc::kPuWhiteBalanceTemperature},
    {CAM_PROPERTY_MANUAL_AWB_CONTROL, P::ProcessingUnit, uvc::kPuWhiteBalanceTemperatureAuto},
    {CAM_PROPERTY_IMAGE_EFFECT, P::Command, xu::kImageEffect},
    {CAM_PROPERTY_3A_CONTROL, P::ThreeA},
    {CAM_PROPERTY_WDR_CONTROL, P::Command, xu::kWideDynamicRange},
    {CAM_PROPERTY_COLOR_EFFECT, P::Command, xu::kColourEffect},
    {CAM_PROPERTY_LOCAL_MIRROR, P::LocalMirror, xu::kLocalMirror},
    {CAM_PROPERTY_DEBUG_LEVEL, P::DebugLevel},
    {CAM_PROPERTY_MIRROR_GRAY, P::Option, xu::kGrayMirror},
    {CAM_PROPERTY_CROP_GRAY, P::CropGray},
    {CAM_PROPERTY_FACE_TRACKING, P::FaceTracking},
    {CAM_PROPERTY_PREVIEW_MODE, P::Command, xu::kPreviewMode},
    {CAM_PROPERTY_LOCAL_RESOLUTION, P::LocalResolution},
    {CAM_PROPERTY_CHANGE_NV12_RESOLUTION, P::Nv12Resolution},
};

/// Holds a lock for a scope when it is wanted.
class OptionalLock {
  public:
    OptionalLock(pMutex& mutex, bool wanted) : m_pMutex(wanted ? &mutex : nullptr) {
        if (m_pMutex != nullptr) {
            m_pMutex->Acquire();
        }
    }
    ~OptionalLock() {
        if (m_pMutex != nullptr) {
            m_pMutex->Release();
        }
    }
    OptionalLock(const OptionalLock&) = delete;
    OptionalLock& operator=(const OptionalLock&) = delete;

  private:
    pMutex* m_pMutex;
};

bool EndProperty(CAM_PROPERTY property, Ending ending) {
    AIT_LOG_AS("SetProperty");
    if (ending == Ending::kSuccess) {
        AIT_LOG(4, "Return true\r\n");
    } else if (ending == Ending::kFailure) {
        AIT_LOG(1, "Fail set property 0x%x\r\n", static_cast<unsigned int>(property));
    }
    return ending == Ending::kSuccess || ending == Ending::kQuietTrue;
}

}  // namespace

const PropertySetters::Row* PropertySetters::Find(CAM_PROPERTY property) {
    for (const Row& row : kRows) {
        if (row.property == property) {
            return &row;
        }
    }
    return nullptr;
}

bool CAitOrixCamera::SetProperty(CAM_PROPERTY property, CAM_PROP_VALUE* param) {
    const PropertySetters::Row* row = PropertySetters::Find(property);
    const bool restarts = row != nullptr && row->restarts;
    if (restarts && RefuseInsideUpdate(LogAs(__func__))) {
        return false;
    }
    OptionalLock startStopLock(m_start_stop_preview_lock, restarts);
    const ControlLock controlLock(LogAs(__func__));
    if (!controlLock.IsHeld()) {
        return false;
    }
    if (param == nullptr) {
        return EndProperty(property, Ending::kFailure);
    }
    AIT_LOG(4,
            "CAitOrixCamera::SetProperty prop=%d, param->value=0x%X, param->res[0]=0x%X, "
            "param->res[1]=0x%X\r\n",
            static_cast<int>(property), static_cast<unsigned int>(param->value),
            static_cast<unsigned int>(param->res[0]), static_cast<unsigned int>(param->res[1]));
    if (row == nullptr) {
        AIT_LOG(4, "Not supported camera property\n");
        return EndProperty(property, Ending::kFailure);
    }
    return EndProperty(property, row->action(*this, *param, *row));
}
