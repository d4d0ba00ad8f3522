// The camera's multiplexed frame: several sub-streams one after the other, each behind a 32-byte
// header. The functions work in place and keep no state: the pointers in a record are valid as long
// as the frame buffer is held.
#pragma once

#include <stdint.h>

/// Header of a sub-stream, little-endian.
///
/// The roles of the two sizes are the camera's convention: dwReserved is what consumers get, while
/// dwPlayloadSize (spelled so) is the step to the next header.
#pragma pack(push, 1)
struct _TmkFramebaseHeader {
    uint16_t wVersion;        ///< not checked
    uint16_t wHeaderLen;      ///< bytes of the header after its first 4; 28 for the bare header
    uint16_t wStreamType;     ///< format ID
    uint16_t wImageWidth;     ///< pixels
    uint16_t wImageHeight;    ///< pixels
    uint16_t wFrameRate;      ///< gray and NV12: the crop flag
    uint32_t dwFrameSeq;      ///< H.264: sequence number
    uint32_t dwTimeStamp;     ///< H.264: time stamp
    uint32_t dwFlag;          ///< not read
    uint32_t dwReserved;      ///< valid bytes of the data
    uint32_t dwPlayloadSize;  ///< room taken by the data, padding included
};
#pragma pack(pop)
typedef _TmkFramebaseHeader TmkFramebaseHeader;
static_assert(sizeof(TmkFramebaseHeader) == 32, "wire format");

/// One demultiplexed frame. Pointers are null and numbers zero where a sub-stream is absent; sizes
/// in bytes, widths and heights in pixels. The m2ts group and the h264 types are never filled.
struct AitH264_MediaSample {
    uint8_t* h264;
    uint32_t h264_size;
    uint16_t h264_width;
    uint16_t h264_height;
    uint8_t h264_type;
    uint32_t h264_frame_seq;
    uint32_t h264_timestamp;

    uint8_t* mjpg;
    uint32_t mjpg_size;
    uint16_t mjpg_width;
    uint16_t mjpg_height;

    uint8_t* gray;
    uint32_t gray_size;
    uint16_t gray_width;
    uint16_t gray_height;
    uint16_t gray_crop_flag;

    uint8_t* yuy2;
    uint32_t yuy2_size;
    uint16_t yuy2_width;
    uint16_t yuy2_height;

    uint8_t* nv12;
    uint32_t nv12_size;
    uint16_t nv12_width;
    uint16_t nv12_height;

    uint8_t* nv21;
    uint32_t nv21_size;
    uint16_t nv21_width;
    uint16_t nv21_height;

    uint16_t nv12_crop_flag;

    uint8_t* m2ts;
    uint32_t m2ts_size;
    uint16_t m2ts_width;
    uint16_t m2ts_height;

    uint8_t* h264_2;
    uint32_t h264_2_size;
    uint16_t h264_2_width;
    uint16_t h264_2_height;
    uint8_t h264_2_type;
    uint32_t h264_2_frame_seq;
    uint32_t h264_2_timestamp;
};

/// Where SPS, PPS and IDR slice lie in a key frame: byte offsets from its start, sizes in bytes.
struct H264KeyFrame {
    int32_t sps_offset;
    int32_t sps_size;
    int32_t pps_offset;
    int32_t pps_size;
    int32_t idr_offset;
    int32_t idr_size;
};

/// Splits `frame` (`frame_size` bytes, written to where padding is zeroed; 64 spare bytes behind it
/// are owned) into `out`. Always 0: an error ends the parsing with one log line and leaves what was
/// filled before it. The sizes come from the device: a consumer checks that a sub-stream lies in
/// its buffer.
int H264Parser_tmk_mode(unsigned char* frame, unsigned int frame_size, AitH264_MediaSample* out);

/// Finds SPS, PPS and IDR of a key frame laid out in that order, with four-byte start codes. 1 when
/// found. `idr_size` is negative when `len` is too short for what the scan assumes.
int ParseH264KeyFrame(unsigned char* buf, int len, H264KeyFrame* kf);

// --- not called by the plug-in

/// Logs the sizes of a record.
void ShowAitH264_MediaSample(AitH264_MediaSample* sample);
