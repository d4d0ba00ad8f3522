#include "PayloadParser.h"

#include <string.h>

#include "aitdbg.h"

namespace {

constexpr uint64_t kHeaderSize = sizeof(TmkFramebaseHeader);
constexpr uint64_t kHeaderStart = 4;  // bytes that wHeaderLen does not count
constexpr uint32_t kLargestPadding = 0x1DF;

enum FormatId : uint16_t {
    kYuy2 = 0x29,
    kNv12 = 0x2A,
    kH264Main = 0x2B,
    kJpeg = 0x2C,
    kGray = 0x2D,
    kNv21 = 0x2F,
    kH264Sub = 0x35,
};

constexpr int kSmallestKeyFrame = 5;
constexpr unsigned char kStartCode[] = {0, 0, 0, 1};
constexpr unsigned char kPpsNalHeader = 0x68;
/// Start code, NAL header and three bytes: the camera's PPS is always that long.
constexpr int kPpsSize = 8;

/// Fills the slot of the header's format; false for an unknown one.
bool FillSlot(const TmkFramebaseHeader& h, uint8_t* data, AitH264_MediaSample* out) {
    switch (h.wStreamType) {
        case kYuy2:
            out->yuy2 = data;
            out->yuy2_size = h.dwReserved;
            out->yuy2_width = h.wImageWidth;
            out->yuy2_height = h.wImageHeight;
            return true;
        case kNv12:
            out->nv12 = data;
            out->nv12_size = h.dwReserved;
            out->nv12_width = h.wImageWidth;
            out->nv12_height = h.wImageHeight;
            out->nv12_crop_flag = h.wFrameRate;
            return true;
        case kH264Main:
            out->h264 = data;
            out->h264_size = h.dwReserved;
            out->h264_width = h.wImageWidth;
            out->h264_height = h.wImageHeight;
            out->h264_frame_seq = h.dwFrameSeq;
            out->h264_timestamp = h.dwTimeStamp;
            return true;
        case kJpeg:
            out->mjpg = data;
            out->mjpg_size = h.dwReserved;
            out->mjpg_width = h.wImageWidth;
            out->mjpg_height = h.wImageHeight;
            return true;
        case kGray:
            out->gray = data;
            out->gray_size = h.dwReserved;
            out->gray_width = h.wImageWidth;
            out->gray_height = h.wImageHeight;
            out->gray_crop_flag = h.wFrameRate;
            return true;
        case kNv21:
            out->nv21 = data;
            out->nv21_size = h.dwReserved;
            out->nv21_width = h.wImageWidth;
            out->nv21_height = h.wImageHeight;
            return true;
        case kH264Sub:
            out->h264_2 = data;
            out->h264_2_size = h.dwReserved;
            out->h264_2_width = h.wImageWidth;
            out->h264_2_height = h.wImageHeight;
            out->h264_2_frame_seq = h.dwFrameSeq;
            out->h264_2_timestamp = h.dwTimeStamp;
            return true;
        default:
            return false;
    }
}

/// True when a sub-stream has padding of a size that is to be zeroed, so that decoders that read
/// ahead find zeros. A larger difference, or data larger than its room, leaves the buffer as it is.
bool HasPadding(const TmkFramebaseHeader& h) {
    return h.dwPlayloadSize > h.dwReserved && h.dwPlayloadSize - h.dwReserved <= kLargestPadding;
}

}  // namespace

int H264Parser_tmk_mode(unsigned char* frame, unsigned int frame_size, AitH264_MediaSample* out) {
    memset(out, 0, sizeof *out);
    if (frame_size == 0) {
        return 0;
    }
    uint64_t offset = 0;  // 64 bits: a huge size from the device must not wrap the sums
    do {
        if (frame_size <= offset + kHeaderSize) {
            AIT_LOG(4, "Parser Error, offset >= frame_size \r\n");
            return 0;
        }
        // A copy: with a header shorter than 28 bytes, zeroing the padding would change it.
        TmkFramebaseHeader h;
        memcpy(&h, frame + offset, sizeof h);
        if (offset + h.dwPlayloadSize > frame_size) {
            // The second number is the size alone, whatever the text says; log readers know it so.
            AIT_LOG(4,
                    "Parser Error, offset+h->dwPlayloadSize > frame_size , Stream Type = "
                    "0x%X,offse+h->dwPlayloadSize=%d\r\n",
                    h.wStreamType, static_cast<int>(h.dwPlayloadSize));
            return 0;
        }
        const uint64_t data = offset + kHeaderStart + h.wHeaderLen;
        const uint64_t end = data + h.dwPlayloadSize;
        if (!FillSlot(h, frame + data, out)) {
            AIT_LOG(4, "Unknown Format ID %d \r\n", h.wStreamType);
            return 0;
        }
        if (HasPadding(h) && frame_size >= end) {
            memset(frame + data + h.dwReserved, 0, h.dwPlayloadSize - h.dwReserved);
        }
        offset = end;
    } while (offset < frame_size);
    return 0;
}

int ParseH264KeyFrame(unsigned char* buf, int len, H264KeyFrame* kf) {
    memset(kf, 0, sizeof *kf);
    if (len < kSmallestKeyFrame) {
        return 0;
    }
    // The start code is deliberately looked for at the start of the frame only, and never moves
    // with the search: the camera's key frames begin with one, and only the PPS header is searched
    // for.
    if (memcmp(buf, kStartCode, sizeof kStartCode) != 0) {
        return 0;
    }
    int i = 0;
    while (i < len && buf[i + 4] != kPpsNalHeader) {  // reads up to four bytes behind the frame
        ++i;
    }
    if (i == len || i < 1) {
        return 0;
    }
    kf->sps_size = i;
    kf->pps_offset = i;
    kf->pps_size = kPpsSize;
    kf->idr_offset = i + kPpsSize;
    kf->idr_size = len - kPpsSize - i;
    return 1;
}

void ShowAitH264_MediaSample(AitH264_MediaSample* sample) {
    AIT_LOG(4, "h264_size=%d, mjpg_size=%d, gray_size=%d, yuy2_size=%d,num=%d\r\n",
            static_cast<int>(sample->h264_size), static_cast<int>(sample->mjpg_size),
            static_cast<int>(sample->gray_size), static_cast<int>(sample->yuy2_size),
            static_cast<int>(sample->h264_frame_seq));
}
