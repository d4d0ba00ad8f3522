// Turns received frames into deliveries: one thread that borrows each frame from the video adapter,
// splits it, checks the H.264 sequences, stamps and hands every sub-stream to the camera object.
#pragma once

#include <atomic>

#include "CameraInterface.h"
#include "CaptureClock.h"
#include "CaptureInterfaces.h"
#include "H264ErrorDetector.h"
#include "PayloadParser.h"
#include "ptasking.h"

class CVideoCaptureThread : public pThread {
  public:
    /// Both are borrowed and outlive the thread.
    CVideoCaptureThread(IVideoCapture* capture, ICameraSubject* subject);
    ~CVideoCaptureThread() override { Stop(); }

    void SetSignalType(CAM_SIGNAL_TYPE type) { m_SignalType = type; }
    /// In call mode a key frame of the main stream is delivered as SPS, PPS and IDR, one by one.
    void SetSkypeCallMode(bool on) { m_bSkypeCallMode = on; }

    void Run() override;

    /// Delivers one record of the main H.264 stream; `cts` in 90 kHz ticks.
    void UpdateH264Frame(unsigned char* buf, int size, unsigned long cts);

  private:
    /// What lives for one run of the thread.
    struct LoopState {
        CaptureClock clock;
        uint32_t prev_cts = 0;
        uint32_t fcount = 0;  // main H.264 frames
        int zero_frame_count = 0;
        bool key_frame_wanted = false;
        CH264_ErrorDetector H264_det_1;  // main
        CH264_ErrorDetector H264_det_2;  // sub
        CCameraExtData data;             // the record of every delivery
        CCamZoomParameters zoom;         // its extension
    };

    void HandleEmptyFrame(LoopState& loop);
    void DeliverFrame(LoopState& loop, uint8_t* frame, uint32_t size);
    void HandleMainH264(LoopState& loop, const AitH264_MediaSample& sample);
    void HandleSubH264(LoopState& loop, const AitH264_MediaSample& sample);
    void RequestKeyFrame(LoopState& loop);
    void DeliverKeyFrameInParts(unsigned char* frame, uint32_t size, uint32_t cts);
    void NoteCts(LoopState& loop, uint32_t cts);
    void DeliverImages(LoopState& loop, const AitH264_MediaSample& sample);
    void Deliver(LoopState& loop, CAM_STREAM_TYPE type, uint8_t* buf, uint32_t size,
                 unsigned long cts);

    IVideoCapture* video_capture;
    ICameraSubject* camera_subject;
    std::atomic<CAM_SIGNAL_TYPE> m_SignalType{CAM_SIGNAL_H264_YUYV};  // the loop does not read it
    std::atomic<bool> m_bSkypeCallMode{false};
};
