// Queries: properties, capabilities, stream format.
#include <unistd.h>

#include "AitOrixCamera.h"
#include "CameraTerminal.h"
#include "LittleEndian.h"
#include "aitdbg.h"

namespace {

constexpr int kUnitsPerDegree = 3600;
constexpr unsigned int kVideoTestSeconds = 2;

}  // namespace

struct PropertyGetters {
    static AIT_LOG_AS("GetProperty");

    typedef bool (*Action)(CAitOrixCamera& camera, CAM_PROP_VALUE& param);

    struct Row {
        CAM_PROPERTY property;
        Action action;
    };

    static const Row kRows[];
    static const Row* Find(CAM_PROPERTY property);

    /// What a field remembers.
    template <auto field>
    static bool Field(CAitOrixCamera& camera, CAM_PROP_VALUE& param) {
        param.value = camera.*field;
        return true;
    }

    static bool Dimension(CAitOrixCamera& camera, CAM_PROP_VALUE& param) {
        param.res[0] = camera.m_nCurrentW;
        param.res[1] = camera.m_nCurrentH;
        return true;
    }

    static bool Zoom(CAitOrixCamera& camera, CAM_PROP_VALUE& param) {
        if (camera.HasCapturer()) {
            camera.video_capturer.load()->GetPTZ(kZoomAbsolute, &param.value);
        } else {
            param.value = 0;
        }
        AIT_LOG(4, "Get ZOOM Step (%d)", param.value);
        return true;
    }

    static bool Pan(CAitOrixCamera& camera, CAM_PROP_VALUE& param) {
        param.value = Degrees(camera, kPanAbsolute);
        AIT_LOG(4, "Get PAN Step (%d)", param.value);
        return true;
    }

    static bool Tilt(CAitOrixCamera& camera, CAM_PROP_VALUE& param) {
        param.value = Degrees(camera, kTiltAbsolute);
        AIT_LOG(4, "Get TILT Step (%d)", param.value);
        return true;
    }

    static bool SignalType(CAitOrixCamera& camera, CAM_PROP_VALUE& param) {
        param.value = camera.m_SignalType;
        AIT_LOG(4, "Get current Signal Type.(%d)", param.value);
        return true;
    }

    static bool Lux(CAitOrixCamera& camera, CAM_PROP_VALUE& param) {
        param.value = 0;
        if (!camera.HasCapturer()) {
            return false;
        }
        xu::Block block(xu::kAmbientLight);
        camera.SendBlock(block);
        camera.ReadAnswer(block);
        param.value = GetLe16(block.bytes + 2);
        return true;
    }

    static bool DebugLevel(CAitOrixCamera&, CAM_PROP_VALUE& param) {
        param.value = static_cast<int>(g_embedded_cam_dbg_level.load());
        return true;
    }

    static bool VideoTest(CAitOrixCamera& camera, CAM_PROP_VALUE& param) {
        if (!camera.HasCapturer()) {
            AIT_LOG(4, "Video Auto Test failed. Device no response.\r\n");
            param.value = 0;
            return false;
        }
        xu::Block block(xu::kVideoTest);
        if (camera.SendBlock(block) < 1) {
            AIT_LOG(4, "Video Auto Test failed. Device no response.\r\n");
            return false;
        }
        sleep(kVideoTestSeconds);
        camera.ReadAnswer(block);
        if (block.bytes[0] != 0) {
            AIT_LOG(4, "Video Auto Test failed. Device no response.\r\n");
            param.value = 0;
            return true;
        }
        // The caller's value, not the result; log readers know it so.
        AIT_LOG(4, "Video Auto Test.(Result: %d)", param.value);
        param.value = 1;
        return true;
    }

    static bool AudioTest(CAitOrixCamera& camera, CAM_PROP_VALUE& param) {
        param.value = AnswersVersion(camera);
        AIT_LOG(4, "Audio Auto Test(Result: %d)", param.value);
        return true;
    }

    static bool ConnectionTest(CAitOrixCamera& camera, CAM_PROP_VALUE& param) {
        param.value = AnswersVersion(camera);
        AIT_LOG(4, "Camera Connection Check.(Result: %d)", param.value);
        return true;
    }

    // --- helpers

    /// Position of an axis in degrees, towards zero.
    static int Degrees(CAitOrixCamera& camera, unsigned int axis) {
        int position = 0;
        if (camera.HasCapturer()) {
            camera.video_capturer.load()->GetPTZ(axis, &position);
        }
        return position / kUnitsPerDegree;
    }

    /// Both tests ask for nothing but the firmware version, and this is intended: 0 means failed.
    static int AnswersVersion(CAitOrixCamera& camera) {
        return camera.fw_loader != nullptr && camera.fw_loader->GetCamVersion() ? 1 : 0;
    }
};

const PropertyGetters::Row PropertyGetters::kRows[] = {
    {CAM_PROPERTY_BITRATE, Field<&CAitOrixCamera::m_nCurrentBPS>},
    {CAM_PROPERTY_FRAMERATE, Field<&CAitOrixCamera::m_nCurrentFPS>},
    {CAM_PROPERTY_DIMENSION, Dimension},
    {CAM_PROPERTY_MICVOLUME, Field<&CAitOrixCamera::m_lastMicVolume>},
    {CAM_PROPERTY_SAMPLERATE, Field<&CAitOrixCamera::m_lastSampRate>},
    {CAM_PROPERTY_ZOOM, Zoom},
    {CAM_PROPERTY_PAN, Pan},
    {CAM_PROPERTY_TILT, Tilt},
    {CAM_PROPERTY_SIGNAL_TYPE, SignalType},
    {CAM_PROPERTY_LUX, Lux},
    {CAM_PROPERTY_DEBUG_LEVEL, DebugLevel},
    {CAM_PROPERTY_FACE_TRACKING, Field<&CAitOrixCamera::m_CurFaceTrackingStatus>},
    {CAM_PROPERTY_VIDEO_TEST, VideoTest},
    {CAM_PROPERTY_AUDIO_TEST, AudioTest},
    {CAM_PROPERTY_CONNECTION_TEST, ConnectionTest},
};

const PropertyGetters::Row* PropertyGetters::Find(CAM_PROPERTY property) {
    for (const Row& row : kRows) {
        if (row.property == property) {
            return &row;
        }
    }
    return nullptr;
}

bool CAitOrixCamera::GetProperty(CAM_PROPERTY property, CAM_PROP_VALUE* param) {
    const ControlLock lock(LogAs(__func__));
    if (!lock.IsHeld()) {
        return false;
    }
    AIT_LOG(5, "CAitOrixCamera::GetProperty prop=0x%X\r\n", static_cast<unsigned int>(property));
    const PropertyGetters::Row* row = PropertyGetters::Find(property);
    if (row == nullptr || param == nullptr) {
        AIT_LOG(4, "Not supported camera property 0x%X\r\n", static_cast<unsigned int>(property));
        return false;
    }
    return row->action(*this, *param);
}

bool CAitOrixCamera::GetCapability(CAM_CAPABILITY capability) {
    AIT_LOG(5, "CAitOrixCamera::GetCapability %d\r\n", static_cast<int>(capability));
    switch (capability) {
        case CAM_CAPABILITY_ZOOM:
        case CAM_CAPABILITY_DUAL_ENCODING:
        case CAM_CAPABILITY_TRIGGER_JPEG:
        case CAM_CAPABILITY_FACE_TRACKING:
        case CAM_CAPABILITY_FHD:
        case CAM_CAPABILITY_RECOG_GESTURE:
        case CAM_CAPABILITY_VESPIN_PLUS:
            return true;
        case CAM_CAPABILITY_Y800600:
            return false;
        case CAM_CAPABILITY_SIGNAL_TYPE:
            if (m_nPlatform < BREAM || m_nPlatform > SHADP) {
                return false;
            }
            // The question itself switches the mode: it is how hosts say that they know signal
            // types.
            mCurTvMode = USE_CAM_SIGNAL_TYPE;
            AIT_LOG(4, "Enable CAM_SIGNAL_TYPE mode \r\n");
            return true;
        default:
            AIT_LOG(1, "Not supported camera capability %d\n", static_cast<int>(capability));
            return false;
    }
}

bool CAitOrixCamera::SetStreamFormat(CAM_STR_FORMAT format) {
    AIT_LOG(4, "CAitOrixCamera::SetStreamFormat format=0x%X\r\n",
            static_cast<unsigned int>(format));
    if (format == CAM_STR_FORMAT_TS) {
        AIT_LOG(4, "CAitOrixCamera not support TS format.\r\n");
    } else {
        AIT_LOG(4, "CAitOrixCamera Video Format= H264\r\n");
    }
    m_StreamFormat = format;  // also the refused one: the value is informational
    return true;
}
