// Watches the sequence numbers of one H.264 stream for lost frames.
#pragma once

enum H264_STATUS {
    H264_STATUS_OK = 0,
    H264_STATUS_FORCE_I = 1,  ///< a key frame has been requested
    H264_STATUS_DROP = 2,     ///< waiting for the key frame
};

class CH264_ErrorDetector {
  public:
    virtual ~CH264_ErrorDetector() = default;

    /// Judges the next frame (`frame` of `size` bytes, beginning with a four-byte start code):
    ///   H264_STATUS_OK       deliver it;
    ///   H264_STATUS_DROP     drop it, the key frame is still awaited;
    ///   H264_STATUS_FORCE_I  a frame was lost, or six went by while waiting: drop it; the caller
    ///                        sets the detectors concerned and requests a key frame.
    /// Sequence number 0 resets the detector. A frame too short to hold a NAL header counts as a
    /// key frame, as does any whose first NAL header is not that of a P-frame.
    H264_STATUS CheckFrame(unsigned char* frame, unsigned int size, unsigned int frame_seq);

    void Reset();
    void ChangeStatus(H264_STATUS newStatus) { status = newStatus; }
    bool IsIframe() const { return is_Iframe; }

    // --- not called by the plug-in
    H264_STATUS GetStatus() const { return status; }

  private:
    H264_STATUS status = H264_STATUS_OK;
    unsigned int cur_frame_id = 0;
    unsigned int count = 0;  // P-frames seen while dropping
    bool is_Iframe = false;
};
