// The television framework's view of a camera: the classes, records and numbers that host and
// plug-in exchange. Host and plug-in must be built with the same C++ ABI (std::string,
// std::vector); the virtual functions are called by slot, so their order is part of the contract.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

// Every enumeration is 32 bits wide with a fixed underlying type, so that a number without a name,
// as a newer host may pass, is a defined value.

/// Kind of record that an observer receives.
enum StreamType : int32_t {
    CAM_STREAM_PCM = 0,
    CAM_STREAM_H264_MAIN = 1,
    CAM_STREAM_H264_SUB = 2,
    CAM_STREAM_MJPEG = 3,
    CAM_STREAM_TS = 4,
    CAM_STREAM_NV12 = 5,
    CAM_STREAM_FD = 6,
    CAM_STREAM_GRAY = 7,
    CAM_STREAM_YUYV = 8,
    CAM_STREAM_JPEG = 9,
    CAM_STREAM_TS_ONLY_VIDEO = 10,
    CAM_STREAM_EVENT = 11,
    CAM_STREAM_NV21 = 12,
    CAM_STREAM_CROPY_1 = 13,
    CAM_STREAM_CROPY_2 = 14,
    CAM_STREAM_CROPY_3 = 15,
    CAM_STREAM_RESERVED_0 = 16,
    CAM_STREAM_RESERVED_1 = 17,
    CAM_STREAM_RESERVED_2 = 18,
    CAM_STREAM_RESERVED_3 = 19,
    CAM_STREAM_RESERVED_4 = 20,
    MAX_CAM_STREAM_TYPE = 21,
};
typedef StreamType CAM_STREAM_TYPE;

enum CAM_STATE : int32_t {
    CAM_STATE_DISCONNECTED = 0,
    CAM_STATE_CONNECTING = 1,
    CAM_STATE_READY = 2,
    CAM_STATE_PLAYING = 3,
    CAM_STATE_SLEEP = 4,
    CAM_STATE_WAKEUP = 5,
    CAM_STATE_RESERVED_0 = 6,
    CAM_STATE_RESERVED_1 = 7,
    CAM_STATE_RESERVED_2 = 8,
    CAM_STATE_RESERVED_3 = 9,
    CAM_STATE_RESERVED_4 = 10,
    CAM_STATE_RESERVED_5 = 11,
    CAM_STATE_RESERVED_6 = 12,
    CAM_STATE_RESERVED_7 = 13,
    CAM_STATE_RESERVED_8 = 14,
    CAM_STATE_RESERVED_9 = 15,
};

enum CAM_PROPERTY : int32_t {
    CAM_PROPERTY_BITRATE = 0,
    CAM_PROPERTY_FRAMERATE = 1,
    CAM_PROPERTY_NEWGOP = 2,
    CAM_PROPERTY_DIMENSION = 3,
    CAM_PROPERTY_MICVOLUME = 4,
    CAM_PROPERTY_SAMPLERATE = 5,
    CAM_PROPERTY_SAMPLEBITS = 6,
    CAM_PROPERTY_ZOOM = 7,
    CAM_PROPERTY_PAN = 8,
    CAM_PROPERTY_TILT = 9,
    CAM_PROPERTY_AUTO_HZ = 10,
    CAM_PROPERTY_AUTO_FOCUS = 11,
    CAM_PROPERTY_MIRROR = 12,
    CAM_PROPERTY_FLIP = 13,
    CAM_PROPERTY_FD_CONTROL = 14,
    CAM_PROPERTY_SIGNAL_TYPE = 15,
    CAM_PROPERTY_I2C_READ_VIDEO = 16,
    CAM_PROPERTY_I2C_WRITE_VIDEO = 17,
    CAM_PROPERTY_I2C_READ_AUDIO = 18,
    CAM_PROPERTY_I2C_WRITE_AUDIO = 19,
    CAM_PROPERTY_CROP_VGA = 20,
    CAM_PROPERTY_TRIGGER_JPEG = 21,
    CAM_PROPERTY_AUDIO_MODE = 22,
    CAM_PROPERTY_WOV = 23,
    CAM_PROPERTY_VIDEO_MODE = 24,
    CAM_PROPERTY_NV12_MODE_CONTROL = 25,
    CAM_PROPERTY_BRIGHTNESS = 26,
    CAM_PROPERTY_CONTRAST = 27,
    CAM_PROPERTY_SATURATION = 28,
    CAM_PROPERTY_SHARPNESS = 29,
    CAM_PROPERTY_HUE = 30,
    CAM_PROPERTY_GAMMA = 31,
    CAM_PROPERTY_BACKLIGHT_CONTROL = 32,
    CAM_PROPERTY_POWER_LINE_FREQUENCY = 33,
    CAM_PROPERTY_AWB_TEMPERATURE = 34,
    CAM_PROPERTY_MANUAL_AWB_CONTROL = 35,
    CAM_PROPERTY_IMAGE_EFFECT = 36,
    CAM_PROPERTY_3A_CONTROL = 37,
    CAM_PROPERTY_WDR_CONTROL = 38,
    CAM_PROPERTY_COLOR_EFFECT = 39,
    CAM_PROPERTY_MANUAL_GAIN_CONTROL = 40,
    CAM_PROPERTY_DIGITAL_GAIN_CONTROL = 41,
    CAM_PROPERTY_ANALOG_GAIN_CONTROL = 42,
    CAM_PROPERTY_LOCAL_MIRROR = 43,
    CAM_PROPERTY_M2TS_CONTROL = 44,
    CAM_PROPERTY_MIRROR_SUB = 45,
    CAM_PROPERTY_IFRAME_INTERVAL = 46,
    CAM_PROPERTY_TS_DURATION = 47,
    CAM_PROPERTY_VERSION = 48,
    CAM_PROPERTY_WOV_UPDATE = 49,
    CAM_PROPERTY_WOV_INDEX = 50,
    CAM_PROPERTY_WOV_VERIFICATION = 51,
    CAM_PROPERTY_LUX = 52,
    CAM_PROPERTY_MODEL = 53,
    CAM_PROPERTY_DIMENSION_EX = 54,
    CAM_PROPERTY_NUM_MIC = 55,
    CAM_PROPERTY_DISTANCE_MIC = 56,
    CAM_PROPERTY_PRESET = 57,
    CAM_PROPERTY_HAWLING_LEVEL = 58,  // the host's spelling
    CAM_PROPERTY_SENSOR_FPS = 59,
    CAM_PROPERTY_CAM_UPDATE = 60,
    CAM_PROPERTY_CAM_PROGRESS = 61,
    CAM_PROPERTY_SLIDE_UPDOWN = 62,
    CAM_PROPERTY_DEBUG_LEVEL = 63,
    CAM_PROPERTY_MIRROR_GRAY = 64,
    CAM_PROPERTY_MIRROR_JPEG = 65,
    CAM_PROPERTY_CROP_GRAY = 66,
    CAM_PROPERTY_H264_PROFILE = 67,
    CAM_PROPERTY_FACE_TRACKING = 68,
    CAM_PROPERTY_PREVIEW_MODE = 69,
    CAM_PROPERTY_VIDEO_TEST = 70,
    CAM_PROPERTY_AUDIO_TEST = 71,
    CAM_PROPERTY_CONNECTION_TEST = 72,
    CAM_PROPERTY_MIC_LEVEL = 73,
    CAM_PROPERTY_MIC_HOWLING = 74,
    CAM_PROPERTY_MIC_SELF_TEST = 75,
    CAM_PROPERTY_I2S_TEST = 76,
    CAM_PROPERTY_SSP_SET = 77,
    CAM_PROPERTY_SLIDE_SET = 78,
    CAM_PROPERTY_AE_TEST_SET = 79,
    CAM_PROPERTY_SHOP_MODE = 80,
    CAM_PROPERTY_HANDLE_LOG_TASK = 81,
    CAM_PROPERTY_FLASH_DUMP = 82,
    CAM_PROPERTY_DRAM_DUMP = 83,
    CAM_PROPERTY_WOV_AUDIO_DUMP = 84,
    CAM_PROPERTY_CROP_Y1 = 85,
    CAM_PROPERTY_CROP_Y2 = 86,
    CAM_PROPERTY_CROP_Y3 = 87,
    CAM_PROPERTY_PROPROC_PARAM1 = 88,
    CAM_PROPERTY_PROPROC_PARAM2 = 89,
    CAM_PROPERTY_PROPROC_PARAM3 = 90,
    CAM_PROPERTY_PROPROC_PARAM4 = 91,
    CAM_PROPERTY_PROPROC_PARAM5 = 92,
    CAM_PROPERTY_TOK_RES_PARAMTER = 93,  // these three in the host's spelling
    CAM_PROPERTY_TOK_DRC_PARAMTER = 94,
    CAM_PROPERTY_TRG_RES_PARAMTER = 95,
    CAM_PROPERTY_MCAST_STREAM_ID = 96,
    CAM_PROPERTY_MCAST_TOGGLE = 97,
    CAM_PROPERTY_UNKNOWN_H_DUMP = 98,
    CAM_PROPERTY_H264_MAIN_DUMP = 99,
    CAM_PROPERTY_GET_BGUPDATE_RESULT = 100,
    CAM_PROPERTY_MIC_MUTE = 101,
    CAM_PROPERTY_LOCAL_RESOLUTION = 102,
    CAM_PROPERTY_SUB_NEWGOP = 103,
    CAM_PROPERTY_CHANGE_NV12_RESOLUTION = 104,
    CAM_PROPERTY_RESERVED_0 = 105,
    CAM_PROPERTY_RESERVED_1 = 106,
    CAM_PROPERTY_RESERVED_2 = 107,
    CAM_PROPERTY_RESERVED_3 = 108,
    CAM_PROPERTY_RESERVED_4 = 109,
    CAM_PROPERTY_RESERVED_5 = 110,
    CAM_PROPERTY_RESERVED_6 = 111,
    CAM_PROPERTY_RESERVED_7 = 112,
    CAM_PROPERTY_RESERVED_8 = 113,
    CAM_PROPERTY_RESERVED_9 = 114,
};

enum CAM_CAPABILITY : int32_t {
    CAM_CAPABILITY_ZOOM = 0,
    CAM_CAPABILITY_DUAL_ENCODING = 1,
    CAM_CAPABILITY_SIGNAL_TYPE = 2,
    CAM_CAPABILITY_TRIGGER_JPEG = 3,
    CAM_CAPABILITY_WOV = 4,
    CAM_CAPABILITY_BEAMFORMER = 5,
    CAM_CAPABILITY_AUTO_HZ = 6,
    CAM_CAPABILITY_FACE_TRACKING = 7,
    CAM_CAPABILITY_FHD = 8,
    CAM_CAPABILITY_Y800600 = 9,
    CAM_CAPABILITY_RECOG_VOICE = 10,
    CAM_CAPABILITY_RECOG_GESTURE = 11,
    CAM_CAPABILITY_NADEX = 12,
    CAM_CAPABILITY_VESPIN_PLUS = 13,
    CAM_CAPABILITY_RESERVED_0 = 14,
    CAM_CAPABILITY_RESERVED_1 = 15,
    CAM_CAPABILITY_RESERVED_2 = 16,
    CAM_CAPABILITY_RESERVED_3 = 17,
    CAM_CAPABILITY_RESERVED_4 = 18,
    CAM_CAPABILITY_RESERVED_5 = 19,
    CAM_CAPABILITY_RESERVED_6 = 20,
    CAM_CAPABILITY_RESERVED_7 = 21,
    CAM_CAPABILITY_RESERVED_8 = 22,
    CAM_CAPABILITY_RESERVED_9 = 23,
};

/// Container of the compressed streams.
enum CAM_STR_FORMAT : int32_t {
    CAM_STR_FORMAT_ES = 0,  ///< elementary stream
    CAM_STR_FORMAT_TS = 1,  ///< transport stream
    CAM_STR_FORMAT_RESERVED_0 = 2,
    CAM_STR_FORMAT_RESERVED_1 = 3,
    CAM_STR_FORMAT_RESERVED_2 = 4,
    CAM_STR_FORMAT_RESERVED_3 = 5,
    CAM_STR_FORMAT_RESERVED_4 = 6,
    CAM_STR_FORMAT_RESERVED_5 = 7,
    CAM_STR_FORMAT_RESERVED_6 = 8,
    CAM_STR_FORMAT_RESERVED_7 = 9,
    CAM_STR_FORMAT_RESERVED_8 = 10,
    CAM_STR_FORMAT_RESERVED_9 = 11,
};

/// Combination of streams, on platforms that select by signal type.
enum CAM_SIGNAL_TYPE : int32_t {
    CAM_SIGNAL_H264_YUYV = 0,
    CAM_SIGNAL_H264_GRAY = 1,
    CAM_SIGNAL_GRAY = 2,
    CAM_SIGNAL_H264_H264_GRAY = 3,
    CAM_SIGNAL_H264_NV21 = 4,
    CAM_SIGNAL_H264_GRAY_JPEG = 5,
    CAM_SIGNAL_H264_GRAY_SI = 6,
    CAM_SIGNAL_H264_H264 = 7,
    CAM_SIGNAL_H264_MJPEG = 8,
    CAM_SIGNAL_MULTI_CAST = 13,
    CAM_SIGNAL_RESERVED_0 = 14,
    CAM_SIGNAL_RESERVED_1 = 15,
    CAM_SIGNAL_RESERVED_2 = 16,
    CAM_SIGNAL_RESERVED_3 = 17,
    CAM_SIGNAL_RESERVED_4 = 18,
};

/// Combination of streams, on platforms that select by video mode.
enum CAM_VIDEO_MODE : int32_t {
    CAM_VIDEO_H264_H264 = 0,
    CAM_VIDEO_H264_MJPEG = 1,
    CAM_VIDEO_H264_JPEG = 2,
    CAM_VIDEO_H264_YUV = 3,
    CAM_VIDEO_H264_GRAY = 4,
    CAM_VIDEO_GRAY = 5,
    CAM_VIDEO_H264_GRAY_JPEG = 6,
    CAM_VIDEO_RESERVED_0 = 7,
    CAM_VIDEO_RESERVED_1 = 8,
    CAM_VIDEO_RESERVED_2 = 9,
    CAM_VIDEO_RESERVED_3 = 10,
    CAM_VIDEO_RESERVED_4 = 11,
};

/// The host's completion callback of Init; true: the camera is usable. Called on a thread of the
/// plug-in, or, where no such thread can be had, inside Init itself. It may call Init again and must
/// not destroy the camera.
typedef void (*InitDoneCallback)(bool usable);

/// Value of a property: one number, or two signed 16-bit halves (such as width and height).
union CAM_PROP_VALUE {
    int value;
    short res[2];
};

/// One frame, audio block or still image. Valid only during ICameraObserver::Update.
struct CCameraData {
    void* m_pData;         ///< borrowed
    unsigned long m_size;  ///< bytes
    unsigned long m_cts;   ///< capture time, 90 kHz, 32 bits; 0 where the stream has none
    CAM_STREAM_TYPE m_type;
};

/// Record with attached data, as gray and NV12 frames travel.
struct CCameraExtData : CCameraData {
    int m_nExtDataSize;  ///< bytes at m_pExtData
    void* m_pExtData;    ///< borrowed; CCamZoomParameters for gray and NV12
};

/// Crop area of a gray or NV12 frame, in pixels of the crop source.
struct CCamZoomParameters {
    bool m_bUseCropping;
    unsigned char m_Reserved[3];
    int m_ZoomAreaTop;
    int m_ZoomAreaLeft;
};

class ICameraSubject;

/// Implemented by the host; one stream type per registration.
class ICameraObserver {
  public:
    virtual ~ICameraObserver() = default;

    /// Takes one record. Runs on a capture thread with the observer lock held: it must be short and
    /// must copy what it keeps. It may query and set properties, which answer false while another
    /// thread stops recording. Init, StartRecording, StopRecording and the properties that restart
    /// recording (DIMENSION, SAMPLERATE, SIGNAL_TYPE, VIDEO_MODE) are refused: false, nothing done.
    /// It must not wait for a thread that does one of these, nor destroy the camera. A video
    /// observer may register and remove observers (a newcomer gets the next record); an audio
    /// observer may not. The empty records (no data) that tell NV12 and gray observers of the end
    /// of a recording come on the thread that stops, the control locks held.
    virtual bool Update(const CCameraData* data) = 0;

    int GetStreamType() { return m_StreamType; }
    void SetStreamType(CAM_STREAM_TYPE type) { m_StreamType = type; }

    ICameraSubject* m_pSubjectRegistered = nullptr;
    CAM_STREAM_TYPE m_StreamType = CAM_STREAM_PCM;
};

/// The camera as the framework holds it.
class ICameraSubject {
  public:
    virtual ~ICameraSubject() = default;

    /// Starts bringing the camera up and returns at once; `callback` reports the end; null: nobody
    /// is told. A second call ends the first, whose callback is called no more.
    virtual void Init(InitDoneCallback callback, int arg) = 0;
    virtual CAM_STATE GetState() { return m_State; }
    virtual void SetState(CAM_STATE state) { m_State = state; }
    virtual bool RegisterObserver(ICameraObserver* observer) = 0;
    virtual bool RemoveObserver(ICameraObserver* observer) = 0;
    virtual bool OnFrameArrival(const CCameraData* data) = 0;
    virtual bool StartRecording() = 0;
    virtual bool StopRecording() = 0;
    virtual bool SetProperty(CAM_PROPERTY property, CAM_PROP_VALUE* param) = 0;
    virtual bool GetProperty(CAM_PROPERTY property, CAM_PROP_VALUE* param) = 0;
    virtual bool GetCapability(CAM_CAPABILITY capability) = 0;
    virtual bool SetStreamFormat(CAM_STR_FORMAT format) = 0;
    virtual std::string& GetVendorName() { return m_VendorName; }
    virtual std::string& GetModelName() { return m_ModelName; }
    virtual const char* Execute(int argc, const char** argv) = 0;
    virtual bool StartTest() = 0;
    virtual bool StopTest() = 0;
    virtual bool PrintStatus() = 0;
    virtual bool OnSleep() { return false; }
    virtual bool OnWakeUp() { return false; }
    virtual bool CameraUpdate(unsigned int, void*) { return false; }
    virtual std::string& GetCamDownloadedRootPath() { return m_FileNPath; }
    virtual std::string& GetCamDataType() { return m_DataType; }
    virtual unsigned int GetCamInstalledVersion() { return 65535; }
    virtual bool MustBeSecured() { return false; }
    virtual bool StopCamUpgrade() { return false; }
    virtual int CompareCamVersion(int, int) { return 0; }

    std::vector<ICameraObserver*> m_pObserverList[MAX_CAM_STREAM_TYPE];
    // Read and written by host and worker threads as one word; nothing is ordered by it.
    std::atomic<CAM_STATE> m_State{CAM_STATE_DISCONNECTED};
    std::string m_VendorName;
    std::string m_ModelName;
    std::string m_FileNPath;
    std::string m_DataType;
};

static_assert(sizeof(std::atomic<CAM_STATE>) == sizeof(CAM_STATE) &&
                  alignof(std::atomic<CAM_STATE>) == alignof(CAM_STATE),
              "the host sees m_State as a plain word");
static_assert(sizeof(CAM_PROP_VALUE) == 4, "");
static_assert(sizeof(CCamZoomParameters) == 12, "");
