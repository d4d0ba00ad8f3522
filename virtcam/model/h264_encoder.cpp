#include "virtcam/model/h264_encoder.h"

#include <wels/codec_api.h>

#include <algorithm>
#include <array>
#include <stdexcept>
#include <string>

#include "virtcam/model/h264_parameter_sets.h"

namespace virtcam::model {
namespace {

constexpr std::array<uint8_t, 4> kStartCode{0, 0, 0, 1};
constexpr size_t kPpsLength = 8;  // start code, header and three bytes
constexpr uint8_t kSliceHeader = 0x41;
constexpr uint8_t kIdrHeader = 0x65;
constexpr uint8_t kSpsHeader = 0x67;
constexpr uint8_t kPpsHeader = 0x68;

enum NalType : uint8_t { kSlice = 1, kIdr = 5, kSps = 7, kPps = 8 };

// Limits of what the encoder is asked for; what the host asked for stays on record.
constexpr int kLeastKbps = 32;
constexpr int kMostKbps = 20000;
constexpr int kMostFps = 30;

[[noreturn]] void fail(const std::string& what) {
    const OpenH264Version version = WelsGetCodecVersion();
    throw std::runtime_error("H.264 encoder (OpenH264 " + std::to_string(version.uMajor) + "." +
                             std::to_string(version.uMinor) + "." +
                             std::to_string(version.uRevision) + "): " + what);
}

/// Position of the next 00 00 01 at or after `from`; the size when there is none.
size_t find_start_code(ByteView bytes, size_t from) {
    for (size_t i = from; i + 3 <= bytes.size(); ++i) {
        if (bytes[i] == 0 && bytes[i + 1] == 0 && bytes[i + 2] == 1) {
            return i;
        }
    }
    return bytes.size();
}

std::vector<ByteView> split_nal_units(ByteView annex_b) {
    std::vector<ByteView> units;
    size_t start = find_start_code(annex_b, 0);
    while (start < annex_b.size()) {
        const size_t begin = start + 3;
        const size_t next = find_start_code(annex_b, begin);
        size_t end = next;
        while (end > begin && annex_b[end - 1] == 0) {
            --end;  // zero_byte of the next start code, or trailing zeros
        }
        if (end > begin) {
            units.push_back(annex_b.subspan(begin, end - begin));
        }
        start = next;
    }
    return units;
}

uint8_t nal_type(ByteView unit) {
    return unit[0] & 0x1F;
}

void append_unit(Bytes& out, ByteView unit, uint8_t header) {
    out.insert(out.end(), kStartCode.begin(), kStartCode.end());
    out.push_back(header);
    out.insert(out.end(), unit.begin() + 1, unit.end());
}

struct AccessUnit {
    ByteView sps, pps, idr, slice;
};

void place_once(ByteView& place, ByteView unit) {
    if (!place.empty()) {
        fail("more than one NAL unit of type " + std::to_string(nal_type(unit)));
    }
    place = unit;
}

AccessUnit sort_units(ByteView annex_b) {
    AccessUnit access_unit;
    for (const ByteView unit : split_nal_units(annex_b)) {
        switch (nal_type(unit)) {
            case kSps:
                place_once(access_unit.sps, unit);
                break;
            case kPps:
                place_once(access_unit.pps, unit);
                break;
            case kIdr:
                place_once(access_unit.idr, unit);
                break;
            case kSlice:
                place_once(access_unit.slice, unit);
                break;
            default:
                break;  // SEI, delimiters: left out
        }
    }
    return access_unit;
}

/// Hosts find the PPS by its header: the SPS before it must not contain that byte.
Bytes sps_without_pps_header(ByteView sps) {
    try {
        return sps_without_byte(sps, kPpsHeader);
    } catch (const std::runtime_error& error) {
        fail(error.what());
    }
}

StreamRate bounded(StreamRate rate) {
    rate.kbps = static_cast<uint16_t>(std::clamp<int>(rate.kbps, kLeastKbps, kMostKbps));
    rate.fps = static_cast<uint16_t>(std::clamp<int>(rate.fps, 1, kMostFps));
    return rate;
}

}  // namespace

Bytes normalise_access_unit(ByteView annex_b) {
    const AccessUnit unit = sort_units(annex_b);
    Bytes out;
    out.reserve(annex_b.size() + 16);
    if (unit.idr.empty()) {
        if (unit.slice.empty()) {
            fail("access unit without a slice");
        }
        append_unit(out, unit.slice, kSliceHeader);
        return out;
    }
    if (unit.sps.empty() || unit.pps.empty() || !unit.slice.empty()) {
        fail("key frame is not SPS, PPS and one IDR slice");
    }
    if (kStartCode.size() + unit.pps.size() != kPpsLength) {
        fail("PPS of " + std::to_string(unit.pps.size()) + " bytes");
    }
    append_unit(out, sps_without_pps_header(unit.sps), kSpsHeader);
    append_unit(out, unit.pps, kPpsHeader);
    append_unit(out, unit.idr, kIdrHeader);
    return out;
}

bool is_key_frame(ByteView access_unit) {
    return access_unit.size() > kStartCode.size() &&
           (access_unit[kStartCode.size()] & 0x1F) == kSps;
}

struct H264Encoder::Handle {
    ISVCEncoder* encoder = nullptr;

    Handle() {
        if (WelsCreateSVCEncoder(&encoder) != 0 || encoder == nullptr) {
            fail("cannot be created");
        }
    }
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;
    ~Handle() {
        encoder->Uninitialize();
        WelsDestroySVCEncoder(encoder);
    }

    void set(ENCODER_OPTION option, void* value, const char* name) {
        if (encoder->SetOption(option, value) != cmResultSuccess) {
            fail(std::string("option refused: ") + name);
        }
    }
};

H264Encoder::H264Encoder(FrameSize size, StreamRate rate)
    : size_(size), rate_(bounded(rate)), handle_(std::make_unique<Handle>()) {
    int quiet = WELS_LOG_QUIET;
    handle_->set(ENCODER_OPTION_TRACE_LEVEL, &quiet, "trace level");

    SEncParamExt parameters{};
    handle_->encoder->GetDefaultParams(&parameters);
    parameters.iUsageType = CAMERA_VIDEO_REAL_TIME;
    parameters.iPicWidth = size.width;
    parameters.iPicHeight = size.height;
    parameters.iTargetBitrate = rate_.kbps * 1000;
    parameters.iMaxBitrate = UNSPECIFIED_BIT_RATE;
    parameters.fMaxFrameRate = rate_.fps;
    parameters.iRCMode = RC_BITRATE_MODE;
    parameters.bEnableFrameSkip = false;
    parameters.uiIntraPeriod = kKeyFrameInterval;
    parameters.eSpsPpsIdStrategy = CONSTANT_ID;
    parameters.iComplexityMode = LOW_COMPLEXITY;
    parameters.iMultipleThreadIdc = 1;
    parameters.bEnableSceneChangeDetect = false;
    parameters.bEnableBackgroundDetection = false;
    parameters.iMinQp = 10;
    parameters.iMaxQp = 51;
    SSpatialLayerConfig& layer = parameters.sSpatialLayers[0];
    layer.iVideoWidth = size.width;
    layer.iVideoHeight = size.height;
    layer.fFrameRate = rate_.fps;
    layer.iSpatialBitrate = parameters.iTargetBitrate;
    layer.iMaxSpatialBitrate = UNSPECIFIED_BIT_RATE;
    layer.uiProfileIdc = PRO_BASELINE;
    layer.sSliceArgument.uiSliceMode = SM_SINGLE_SLICE;
    if (handle_->encoder->InitializeExt(&parameters) != cmResultSuccess) {
        fail("parameters refused");
    }
}

H264Encoder::~H264Encoder() = default;

void H264Encoder::set_rate(StreamRate rate) {
    rate = bounded(rate);
    if (rate.fps != rate_.fps) {
        float fps = rate.fps;
        handle_->set(ENCODER_OPTION_FRAME_RATE, &fps, "frame rate");
    }
    if (rate.kbps != rate_.kbps) {
        SBitrateInfo info{SPATIAL_LAYER_ALL, rate.kbps * 1000};
        handle_->set(ENCODER_OPTION_BITRATE, &info, "bit rate");
    }
    rate_ = rate;
}

Bytes H264Encoder::encode(const Picture& picture, bool key) {
    if (key) {
        handle_->encoder->ForceIntraFrame(true);
    }
    SSourcePicture source{};
    source.iColorFormat = videoFormatI420;
    source.iPicWidth = picture.width;
    source.iPicHeight = picture.height;
    source.iStride[0] = picture.width;
    source.iStride[1] = source.iStride[2] = picture.chroma_width();
    // The library's interface lacks const; it only reads the planes.
    source.pData[0] = const_cast<uint8_t*>(picture.y.data());
    source.pData[1] = const_cast<uint8_t*>(picture.u.data());
    source.pData[2] = const_cast<uint8_t*>(picture.v.data());
    source.uiTimeStamp = static_cast<long long>(timestamp_ms_);
    timestamp_ms_ += 1000.0 / rate_.fps;

    SFrameBSInfo info{};
    if (handle_->encoder->EncodeFrame(&source, &info) != cmResultSuccess) {
        fail("a picture was refused");
    }
    Bytes annex_b;
    for (int i = 0; i < info.iLayerNum; ++i) {
        const SLayerBSInfo& layer = info.sLayerInfo[i];
        size_t length = 0;
        for (int unit = 0; unit < layer.iNalCount; ++unit) {
            length += static_cast<size_t>(layer.pNalLengthInByte[unit]);
        }
        annex_b.insert(annex_b.end(), layer.pBsBuf, layer.pBsBuf + length);
    }
    return normalise_access_unit(annex_b);
}

}  // namespace virtcam::model
