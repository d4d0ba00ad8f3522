// The one camera object that the framework holds. Its operations stand in several source files, by
// concern: AitOrixCamera.cpp (life cycle), _Init, _Observers, _Recording, _SetProperty,
// _GetProperty, _Device (option word, light) and _Locks.
//
// Process-wide locks, all recursive, in the order in which they are taken (docs/architecture.md has
// the whole table):
//   m_start_stop_preview_lock   a whole start or stop of recording, restarts by a property included
//   m_video_ctrl_lock           device control: start, stop, SetProperty, GetProperty
//   m_observer_lock             observer lists, still flag, crop latch
//   m_audio_observer_lock       the audio observer list
// Delivery takes one observer lock and never a control lock, so that stopping a capture thread,
// which waits for it under the control locks, cannot deadlock against delivery.
#pragma once

#include <atomic>
#include <string>
#include <vector>

#include "AudioCaptureThread.h"
#include "CameraFwLoader.h"
#include "CameraInterface.h"
#include "Platform.h"
#include "V4l2Capture.h"
#include "VendorCommands.h"
#include "VideoCaptureThread.h"
#include "aitdbg.h"
#include "ptasking.h"

extern pMutex m_observer_lock;
extern pMutex m_start_stop_preview_lock;
extern pMutex m_video_ctrl_lock;
extern pMutex m_audio_observer_lock;

/// In pixels of the crop source. One word, so that no frame sees half of a change.
struct alignas(4) CropOrigin {
    uint16_t x;
    uint16_t y;
};

/// Holds m_video_ctrl_lock for a scope. Inside an observer's Update it is not waited for while
/// recording stops, since the stop waits for Update.
class ControlLock {
  public:
    explicit ControlLock(LogAs AitLogName);
    ~ControlLock();
    ControlLock(const ControlLock&) = delete;
    ControlLock& operator=(const ControlLock&) = delete;

    /// False, with a line: the call cannot be served.
    bool IsHeld() const { return m_bHeld; }

  private:
    bool m_bHeld;
};

/// Says, for a scope, that the holder of the control locks is stopping and may wait for observers.
class StoppingMark {
  public:
    StoppingMark();
    ~StoppingMark();
    StoppingMark(const StoppingMark&) = delete;
    StoppingMark& operator=(const StoppingMark&) = delete;
};

class CAitOrixCamera : public ICameraSubject {
  public:
    CAitOrixCamera();
    ~CAitOrixCamera() override;
    CAitOrixCamera(const CAitOrixCamera&) = delete;
    CAitOrixCamera& operator=(const CAitOrixCamera&) = delete;

    // ICameraSubject; host threads.
    void Init(InitDoneCallback callback, int arg) override;
    CAM_STATE GetState() override;
    bool RegisterObserver(ICameraObserver* observer) override;
    bool RemoveObserver(ICameraObserver* observer) override;
    bool OnFrameArrival(const CCameraData* data) override;  ///< capture threads too
    bool StartRecording() override;
    bool StopRecording() override;  ///< loader thread too, when the camera is gone
    bool SetProperty(CAM_PROPERTY property, CAM_PROP_VALUE* param) override;
    bool GetProperty(CAM_PROPERTY property, CAM_PROP_VALUE* param) override;
    bool GetCapability(CAM_CAPABILITY capability) override;
    bool SetStreamFormat(CAM_STR_FORMAT format) override;
    const char* Execute(int, const char**) override { return nullptr; }
    bool StartTest() override;
    bool StopTest() override;
    bool PrintStatus() override;

    /// The firmware loader's report: creates the adapters, sets the state and calls the host back.
    /// Loader thread; `data` is the camera object.
    static void CamInitDoneCallback(unsigned int status, void* data);

    /// Takes the debug level from the highest marker file; 1 without any. Always true.
    bool LoadDebugLevel();
    /// Sets the debug level (1 to 5) and keeps it in a marker file; false outside that range.
    bool SetDebugLevel(int level);

    /// Sends the mains frequency selector (1 or 2) as the AUTO_HZ property. 0, or -1.
    int SetFlicker(unsigned char frequency);
    /// Switches the camera's light; true: the command went out.
    bool TurnOnOffLED(unsigned char on);
    /// Reads the video option word; 0, or AIT_ERR_DEVICE with a log line.
    int GetVideoOption(unsigned int* options);
    /// Writes it; the adapter's result, or -1 without a device.
    int SetVideoOption(unsigned int options);
    /// Tells the NV12 and gray observers, by an empty record each, that the streams have ended.
    bool SendTerminateFrame();

    /// True on a thread that is inside an observer's Update.
    static bool IsInsideUpdate();

  private:
    // The rows of the two property tables: actions on the object, kept out of this header.
    friend struct PropertySetters;
    friend struct PropertyGetters;

    // Initialisation.
    void HandOver(unsigned int status);
    bool SetStateUnlessGone(CAM_STATE state);
    bool StartLoader(InitDoneCallback callback);
    bool DeleteLoader();
    void TellHost(bool usable);
    void CreateAdapters();
    bool AdaptersReady() const;

    // Dispatch.
    bool DeliverAudio(const CCameraData* data);
    bool DeliverVideo(const CCameraData* data);
    bool PassesJpegGate(CAM_STREAM_TYPE type);
    void AttachCropArea(CCameraData* data);

    // Recording, step by step.
    void SelectStreamCombination();
    void SelectByVideoMode();
    void SelectBySignalType();
    void ApplyCallModeOptions();
    void SendStreamCombination(unsigned char code);
    void SetStreamTarget(xu::StreamTarget target);
    bool OpenVideoStream();
    void SetStreamRates();
    void ApplyAntiFlickerOnce();
    bool StartVideoThread();
    bool StartAudio();
    bool StartAudioThread();
    bool GiveUpStart();
    void StopVideoThread();
    void StopAudioThread();

    // True, with a line, inside an observer's Update: these would wait for the calling thread.
    static bool RefuseInsideUpdate(LogAs AitLogName);

    // Is there a device to take commands? CheckCapturer says so in the log when there is none.
    bool HasCapturer() const;
    bool CheckCapturer(LogAs AitLogName) const;
    static void LogNoCapturer(LogAs AitLogName);

    // Vendor commands, through the video adapter, which must be there; bytes, or a negative code.
    int SendBlock(xu::Block block);
    /// Reads the answer to the last command of the block's group into the block.
    int ReadAnswer(xu::Block& block);

    void RestartRecording();

    // In the order in which those who debug the framework know them, the unused ones included. No
    // program depends on it: a host sees the ICameraSubject part alone.
    // The adapters appear on the loader thread while host threads may already ask for them.
    std::atomic<AitUvcCapture*> video_capturer{nullptr};
    CVideoCaptureThread* capture_thread = nullptr;
    std::atomic<CAudioCapture*> audio_capturer{nullptr};
    CAudioCaptureThread* audio_capture_thread = nullptr;
    CCameraFwLoader* fw_loader = nullptr;  ///< changed under m_video_ctrl_lock
    unsigned int m_nInits = 0;             ///< likewise; only the latest Init starts its loader
    std::atomic<InitDoneCallback> fpInitDoneCb{nullptr};
    int m_PowerFreq = 0;  ///< mains frequency selector: 1, 2, or 0 when none is configured
    bool m_bSetAntiFlicker = false;
    [[maybe_unused]] bool m_flagRun = false;   ///< unused
    [[maybe_unused]] int m_ZoomLevel = 2;      ///< unused
    int m_lastMicVolume = 30;                  ///< percent
    [[maybe_unused]] int m_lastZoomLevel = 0;  ///< unused
    int m_lastSampRate = 16000;                ///< Hz
    int m_nCurrentBPS = 2000000;               ///< bit/s
    int m_nCurrentFPS = 30;
    short m_nCurrentW = 640;
    short m_nCurrentH = 480;
    [[maybe_unused]] int m_status = 0;  ///< unused
    std::atomic<bool> m_bSkypeCallMode{false};
    std::atomic<TV_MODE> mCurTvMode{USE_CAM_VIDEO_MODE};
    CAM_VIDEO_MODE m_videomode = CAM_VIDEO_H264_MJPEG;
    CAM_SIGNAL_TYPE m_SignalType = CAM_SIGNAL_H264_GRAY_SI;
    std::atomic<CAM_STR_FORMAT> m_StreamFormat{CAM_STR_FORMAT_ES};
    CCameraData m_Data = {};
    int m_nPlatform = BREAM;
    unsigned int m_CropMode = 0;
    uint16_t m_PrevCropFlag = 0xFFFF;
    CropOrigin m_PrevCropPos = {0, 0};
    std::atomic<CropOrigin> m_CurCropPos{CropOrigin{0, 0}};
    uint8_t m_CurFaceTrackingStatus = 0;
    std::atomic<bool> m_bJpegTriggered{false};
    std::vector<ICameraObserver*> m_AudioObserver;
};

/// The newest camera object; null when none, and when any object has been destroyed since.
extern CAitOrixCamera* g_pCamera;
/// Its scratch record.
extern CCameraData* g_pData;
