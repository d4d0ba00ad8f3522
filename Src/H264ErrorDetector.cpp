#include "H264ErrorDetector.h"

#include "aitdbg.h"

namespace {

constexpr unsigned int kNalHeaderOffset = 4;  // behind the start code
constexpr unsigned char kPFrameNalHeader = 0x41;
constexpr unsigned int kPatience = 6;  // P-frames until the key frame is requested again

bool IsPFrame(const unsigned char* frame, unsigned int size) {
    return size > kNalHeaderOffset && frame[kNalHeaderOffset] == kPFrameNalHeader;
}

}  // namespace

H264_STATUS CH264_ErrorDetector::CheckFrame(unsigned char* frame, unsigned int size,
                                            unsigned int frame_seq) {
    is_Iframe = !IsPFrame(frame, size);
    if (frame_seq == 0) {
        Reset();
        return status;
    }
    const bool inSequence = frame_seq == cur_frame_id + 1;
    cur_frame_id = frame_seq;
    if (is_Iframe) {
        status = H264_STATUS_OK;
        count = 0;
        return status;
    }
    switch (status) {
        case H264_STATUS_OK:
            return inSequence ? H264_STATUS_OK : H264_STATUS_FORCE_I;
        case H264_STATUS_FORCE_I:
            status = H264_STATUS_DROP;
            ++count;
            return status;
        case H264_STATUS_DROP:
            ++count;
            if (count >= kPatience) {
                count = 0;
                return H264_STATUS_FORCE_I;
            }
            return status;
    }
    return status;
}

void CH264_ErrorDetector::Reset() {
    cur_frame_id = 0;
    count = 0;
    status = H264_STATUS_OK;
    AIT_LOG(4, "CH264_ErrorDetector RESET.\r\n");
}
