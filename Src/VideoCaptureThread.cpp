#include "VideoCaptureThread.h"

#include <unistd.h>

#include "aitdbg.h"

namespace {

constexpr int kEmptyFramesForgiven = 3;
constexpr useconds_t kHangupPauseUs = 1000000;
constexpr uint32_t kAliveInterval = 30;  // frames

/// A sub-stream may claim data up to this far behind the received frame: the bounds of the frame
/// format allow it, and the buffers own more spare bytes than that.
constexpr uint64_t kAllowedOverrun = 32;

/// Takes a sub-stream out of the record whose data would begin outside the frame or reach too far
/// behind it: sizes come from the device.
void CheckBounds(uint8_t*& data, uint32_t size, const uint8_t* frame, uint32_t frameSize) {
    AIT_LOG_AS("Run");
    if (data == nullptr) {
        return;
    }
    const uint64_t start = reinterpret_cast<uintptr_t>(data);
    const uint64_t begin = reinterpret_cast<uintptr_t>(frame);
    const uint64_t end = begin + frameSize;
    if (start < begin || start >= end || start + size > end + kAllowedOverrun) {
        AIT_LOG(3, "Sub-stream of %u bytes exceeds its frame of %u bytes.\r\n", size, frameSize);
        data = nullptr;
    }
}

void CheckBounds(AitH264_MediaSample& sample, const uint8_t* frame, uint32_t frameSize) {
    CheckBounds(sample.h264, sample.h264_size, frame, frameSize);
    CheckBounds(sample.h264_2, sample.h264_2_size, frame, frameSize);
    CheckBounds(sample.mjpg, sample.mjpg_size, frame, frameSize);
    CheckBounds(sample.gray, sample.gray_size, frame, frameSize);
    CheckBounds(sample.nv12, sample.nv12_size, frame, frameSize);
    CheckBounds(sample.nv21, sample.nv21_size, frame, frameSize);
    CheckBounds(sample.yuy2, sample.yuy2_size, frame, frameSize);
}

}  // namespace

CVideoCaptureThread::CVideoCaptureThread(IVideoCapture* capture, ICameraSubject* subject)
    : pThread(false, -1), video_capture(capture), camera_subject(subject) {}

void CVideoCaptureThread::Run() {
    LoopState loop;
    if (!RaiseThreadPriority()) {
        AIT_LOG(1, "setpriority error!");
    }
    while (!Shutdown) {
        uint8_t* frame = nullptr;
        uint32_t length = 0;
        const int fsize = video_capture->GetFrameBuf(&frame, &length);
        if (fsize < 1) {
            HandleEmptyFrame(loop);
        }
        loop.clock.Advance();
        if (fsize < 1) {
            continue;
        }
        DeliverFrame(loop, frame, static_cast<uint32_t>(fsize));
        if (!Shutdown) {
            video_capture->RetFrameBuf();
            RequestKeyFrame(loop);
        }
    }
    AIT_LOG(4, "Exit VideoCapture thread.\r\n");
}

/// Every fifth empty frame since the last pause causes one. The counter is deliberately not cleared
/// by good frames, and the stream is not restarted, whatever the text says.
void CVideoCaptureThread::HandleEmptyFrame(LoopState& loop) {
    AIT_LOG_AS("Run");
    AIT_LOG(4, "Zero frame size.\r\n");
    if (loop.zero_frame_count > kEmptyFramesForgiven) {
        loop.zero_frame_count = 0;
        AIT_LOG(4, "Detected a video hangup problem, reset streaming.\r\n");
        usleep(kHangupPauseUs);
    } else {
        ++loop.zero_frame_count;
    }
}

void CVideoCaptureThread::DeliverFrame(LoopState& loop, uint8_t* frame, uint32_t size) {
    loop.data = {};
    loop.data.m_type = MAX_CAM_STREAM_TYPE;
    AitH264_MediaSample sample;
    H264Parser_tmk_mode(frame, size, &sample);
    CheckBounds(sample, frame, size);
    if (sample.h264 != nullptr && !Shutdown) {
        HandleMainH264(loop, sample);
    }
    if (sample.h264_2 != nullptr && !Shutdown) {
        HandleSubH264(loop, sample);
    }
    DeliverImages(loop, sample);
}

void CVideoCaptureThread::HandleMainH264(LoopState& loop, const AitH264_MediaSample& sample) {
    AIT_LOG_AS("Run");
    const H264_STATUS status =
        loop.H264_det_1.CheckFrame(sample.h264, sample.h264_size, sample.h264_frame_seq);
    if (status == H264_STATUS_FORCE_I) {
        AIT_LOG(4, "Main H264, FRAME LOST. %d\r\n", static_cast<int>(sample.h264_frame_seq));
        loop.H264_det_1.ChangeStatus(H264_STATUS_FORCE_I);
        loop.H264_det_2.ChangeStatus(H264_STATUS_FORCE_I);
        loop.key_frame_wanted = true;
    }
    const uint32_t cts = loop.clock.Cts();
    if (status != H264_STATUS_OK) {
        AIT_LOG(3, "Drop H264[1] frame.\r\n");
    } else if (m_bSkypeCallMode && loop.H264_det_1.IsIframe()) {
        DeliverKeyFrameInParts(sample.h264, sample.h264_size, cts);
    } else {
        NoteCts(loop, cts);
        Deliver(loop, CAM_STREAM_H264_MAIN, sample.h264, sample.h264_size, cts);
    }
    ++loop.fcount;
    if (loop.fcount % kAliveInterval == 0) {
        AIT_LOG(5, "CVideoCaptureThread:: MAIN H264 ALIVE. Timestamp= %lu\r\n",
                static_cast<unsigned long>(cts));
    }
}

void CVideoCaptureThread::HandleSubH264(LoopState& loop, const AitH264_MediaSample& sample) {
    AIT_LOG_AS("Run");
    const H264_STATUS status =
        loop.H264_det_2.CheckFrame(sample.h264_2, sample.h264_2_size, sample.h264_2_frame_seq);
    if (status == H264_STATUS_FORCE_I) {
        AIT_LOG(4, "Sub H264, FRAME LOST. %d\r\n", static_cast<int>(sample.h264_2_frame_seq));
        loop.H264_det_2.ChangeStatus(H264_STATUS_FORCE_I);
        loop.key_frame_wanted = true;
    }
    if (status != H264_STATUS_OK) {
        AIT_LOG(4, "Drop H264[2] frame.\r\n");
        return;
    }
    Deliver(loop, CAM_STREAM_H264_SUB, sample.h264_2, sample.h264_2_size, loop.clock.Cts());
}

/// Sends the request for which a frame was the reason, once the frame's buffer is back in the queue:
/// a request is answered by way of the event thread, which may be waiting for that very buffer.
void CVideoCaptureThread::RequestKeyFrame(LoopState& loop) {
    if (loop.key_frame_wanted) {
        loop.key_frame_wanted = false;
        video_capture->RequestKeyFrame();
    }
}

void CVideoCaptureThread::DeliverKeyFrameInParts(unsigned char* frame, uint32_t size,
                                                 uint32_t cts) {
    AIT_LOG_AS("Run");
    H264KeyFrame parts;
    if (ParseH264KeyFrame(frame, static_cast<int>(size), &parts) != 1 || parts.idr_size < 0) {
        AIT_LOG(1, "Failed to parsing H264 key frame !!!");
        return;
    }
    UpdateH264Frame(frame + parts.sps_offset, parts.sps_size, cts);
    UpdateH264Frame(frame + parts.pps_offset, parts.pps_size, cts);
    UpdateH264Frame(frame + parts.idr_offset, parts.idr_size, cts);
}

/// A repeated time stamp is only reported, the frame is delivered all the same.
void CVideoCaptureThread::NoteCts(LoopState& loop, uint32_t cts) {
    AIT_LOG_AS("Run");
    if (loop.prev_cts != 0) {
        if (cts == loop.prev_cts) {
            AIT_LOG(1, "CTS problem has been occured !!!");
        } else {
            AIT_LOG(5, "Currnet CTS is (%lu : %lu)", static_cast<unsigned long>(cts),
                    static_cast<unsigned long>(cts - loop.prev_cts));
        }
    }
    loop.prev_cts = cts;
}

/// The crop flag of gray and NV12 travels in the time stamp's place. The record is not cleared
/// between these deliveries, so NV21 and YUY2 carry the extension of a gray or NV12 image before
/// them; hosts have always seen it so.
void CVideoCaptureThread::DeliverImages(LoopState& loop, const AitH264_MediaSample& sample) {
    const auto attachZoom = [&] {
        loop.zoom = {};
        loop.data.m_nExtDataSize = sizeof loop.zoom;
        loop.data.m_pExtData = &loop.zoom;
    };
    if (sample.mjpg != nullptr && !Shutdown) {
        Deliver(loop, CAM_STREAM_JPEG, sample.mjpg, sample.mjpg_size, 0);
    }
    if (sample.gray != nullptr && !Shutdown) {
        attachZoom();
        Deliver(loop, CAM_STREAM_GRAY, sample.gray, sample.gray_size, sample.gray_crop_flag);
    }
    if (sample.nv12 != nullptr && !Shutdown) {
        attachZoom();
        Deliver(loop, CAM_STREAM_NV12, sample.nv12, sample.nv12_size, sample.nv12_crop_flag);
    }
    if (sample.nv21 != nullptr && !Shutdown) {
        Deliver(loop, CAM_STREAM_NV21, sample.nv21, sample.nv21_size, 0);
    }
    if (sample.yuy2 != nullptr && !Shutdown) {
        Deliver(loop, CAM_STREAM_YUYV, sample.yuy2, sample.yuy2_size, 0);
    }
}

void CVideoCaptureThread::Deliver(LoopState& loop, CAM_STREAM_TYPE type, uint8_t* buf,
                                  uint32_t size, unsigned long cts) {
    loop.data.m_pData = buf;
    loop.data.m_size = size;
    loop.data.m_cts = cts;
    loop.data.m_type = type;
    camera_subject->OnFrameArrival(&loop.data);
}

void CVideoCaptureThread::UpdateH264Frame(unsigned char* buf, int size, unsigned long cts) {
    CCameraData data;
    data.m_pData = buf;
    data.m_size = static_cast<unsigned long>(size);
    data.m_cts = cts;
    data.m_type = CAM_STREAM_H264_MAIN;
    camera_subject->OnFrameArrival(&data);
}
