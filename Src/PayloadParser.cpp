#include "PayloadParser.h"

#include <string.h>

#include "LittleEndian.h"
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

/// Where a format's header goes in the record; null for what the record does not keep of it. Gray
/// and NV12 carry their crop flag in the frame rate's place.
struct Slot {
    typedef AitH264_MediaSample Record;
    uint16_t format;
    uint8_t* Record::*data;
    uint32_t Record::*size;
    uint16_t Record::*width;
    uint16_t Record::*height;
    uint16_t Record::*cropFlag;
    uint32_t Record::*sequence;
    uint32_t Record::*timestamp;
};

typedef AitH264_MediaSample R;  // short, for the table
constexpr Slot kSlots[] = {
    {kYuy2, &R::yuy2, &R::yuy2_size, &R::yuy2_width, &R::yuy2_height, nullptr, nullptr, nullptr},
    {kNv12, &R::nv12, &R::nv12_size, &R::nv12_width, &R::nv12_height, &R::nv12_crop_flag, nullptr,
     nullptr},
    {kH264Main, &R::h264, &R::h264_size, &R::h264_width, &R::h264_height, nullptr,
     &R::h264_frame_seq, &R::h264_timestamp},
    {kJpeg, &R::mjpg, &R::mjpg_size, &R::mjpg_width, &R::mjpg_height, nullptr, nullptr, nullptr},
    {kGray, &R::gray, &R::gray_size, &R::gray_width, &R::gray_height, &R::gray_crop_flag, nullptr,
     nullptr},
    {kNv21, &R::nv21, &R::nv21_size, &R::nv21_width, &R::nv21_height, nullptr, nullptr, nullptr},
    {kH264Sub, &R::h264_2, &R::h264_2_size, &R::h264_2_width, &R::h264_2_height, nullptr,
     &R::h264_2_frame_seq, &R::h264_2_timestamp},
};

/// Byte by byte: a header begins wherever the data before it ends, and is little-endian.
TmkFramebaseHeader ReadHeader(const uint8_t* at) {
    TmkFramebaseHeader h;
    h.wVersion = GetLe16(at);
    h.wHeaderLen = GetLe16(at + 2);
    h.wStreamType = GetLe16(at + 4);
    h.wImageWidth = GetLe16(at + 6);
    h.wImageHeight = GetLe16(at + 8);
    h.wFrameRate = GetLe16(at + 10);
    h.dwFrameSeq = GetLe32(at + 12);
    h.dwTimeStamp = GetLe32(at + 16);
    h.dwFlag = GetLe32(at + 20);
    h.dwReserved = GetLe32(at + 24);
    h.dwPlayloadSize = GetLe32(at + 28);
    return h;
}

/// Fills the slot of the header's format; false for an unknown one.
bool FillSlot(const TmkFramebaseHeader& h, uint8_t* data, AitH264_MediaSample* out) {
    for (const Slot& slot : kSlots) {
        if (slot.format != h.wStreamType) {
            continue;
        }
        out->*slot.data = data;
        out->*slot.size = h.dwReserved;
        out->*slot.width = h.wImageWidth;
        out->*slot.height = h.wImageHeight;
        if (slot.cropFlag != nullptr) {
            out->*slot.cropFlag = h.wFrameRate;
        }
        if (slot.sequence != nullptr) {
            out->*slot.sequence = h.dwFrameSeq;
            out->*slot.timestamp = h.dwTimeStamp;
        }
        return true;
    }
    return false;
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
        const TmkFramebaseHeader h = ReadHeader(frame + offset);
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

// --- not called by the plug-in

void ShowAitH264_MediaSample(AitH264_MediaSample* sample) {
    AIT_LOG(4, "h264_size=%d, mjpg_size=%d, gray_size=%d, yuy2_size=%d,num=%d\r\n",
            static_cast<int>(sample->h264_size), static_cast<int>(sample->mjpg_size),
            static_cast<int>(sample->gray_size), static_cast<int>(sample->yuy2_size),
            static_cast<int>(sample->h264_frame_seq));
}
