#include "tests/host/fake_content.h"

#include <turbojpeg.h>
#include <wels/codec_api.h>

#include <stdexcept>

namespace fake {

namespace {

constexpr int kUnits = 30;
constexpr size_t kArea = size_t{kWidth} * kHeight;

std::vector<uint8_t> luma(int counter) {
    std::vector<uint8_t> picture;
    picture.reserve(kArea);
    for (int y = 0; y < kHeight; ++y) {
        for (int x = 0; x < kWidth; ++x) {
            picture.push_back(static_cast<uint8_t>(16 + (x * 3 + y * 2 + counter * 5) % 200));
        }
    }
    return picture;
}

std::vector<uint8_t> bytes_of(const SFrameBSInfo& coded) {
    std::vector<uint8_t> unit;
    for (int i = 0; i < coded.iLayerNum; ++i) {
        const SLayerBSInfo& layer = coded.sLayerInfo[i];
        int size = 0;
        for (int n = 0; n < layer.iNalCount; ++n) {
            size += layer.pNalLengthInByte[n];
        }
        unit.insert(unit.end(), layer.pBsBuf, layer.pBsBuf + size);
    }
    return unit;
}

std::vector<std::vector<uint8_t>> encode() {
    ISVCEncoder* encoder = nullptr;
    if (WelsCreateSVCEncoder(&encoder) != 0) {
        throw std::runtime_error("no encoder");
    }
    int quiet = WELS_LOG_QUIET;
    encoder->SetOption(ENCODER_OPTION_TRACE_LEVEL, &quiet);
    SEncParamBase parameters{};
    parameters.iUsageType = CAMERA_VIDEO_REAL_TIME;
    parameters.iPicWidth = kWidth;
    parameters.iPicHeight = kHeight;
    parameters.iTargetBitrate = 200'000;
    parameters.iRCMode = RC_OFF_MODE;
    parameters.fMaxFrameRate = 30;
    encoder->Initialize(&parameters);
    std::vector<std::vector<uint8_t>> units;
    const std::vector<uint8_t> chroma(kArea / 4, 128);
    for (int i = 0; i < kUnits; ++i) {
        std::vector<uint8_t> y = luma(i);
        SSourcePicture source{};
        source.iColorFormat = videoFormatI420;
        source.iPicWidth = kWidth;
        source.iPicHeight = kHeight;
        source.iStride[0] = kWidth;
        source.iStride[1] = source.iStride[2] = kWidth / 2;
        source.pData[0] = y.data();
        source.pData[1] = source.pData[2] = const_cast<uint8_t*>(chroma.data());
        source.uiTimeStamp = int64_t{33} * i;
        SFrameBSInfo coded{};
        encoder->EncodeFrame(&source, &coded);
        units.push_back(bytes_of(coded));
    }
    encoder->Uninitialize();
    WelsDestroySVCEncoder(encoder);
    return units;
}

std::vector<uint8_t> compress() {
    const std::vector<uint8_t> picture = luma(0);
    tjhandle compressor = tjInitCompress();
    unsigned char* bytes = nullptr;
    unsigned long size = 0;
    tjCompress2(compressor, picture.data(), kWidth, 0, kHeight, TJPF_GRAY, &bytes, &size,
                TJSAMP_GRAY, 90, 0);
    std::vector<uint8_t> result(bytes, bytes + size);
    tjFree(bytes);
    tjDestroy(compressor);
    return result;
}

}  // namespace

const std::vector<std::vector<uint8_t>>& h264_units() {
    static const auto units = encode();
    return units;
}

std::vector<std::vector<uint8_t>> split_key_frame() {
    const std::vector<uint8_t>& unit = h264_units().front();
    std::vector<std::vector<uint8_t>> parts;
    for (size_t i = 0; i < unit.size(); ++i) {
        const bool code = i + 4 <= unit.size() && unit[i] == 0 && unit[i + 1] == 0 &&
                          unit[i + 2] == 0 && unit[i + 3] == 1;
        if (code) {
            parts.emplace_back();
        }
        parts.back().push_back(unit[i]);
    }
    return parts;
}

const std::vector<uint8_t>& jpeg() {
    static const auto bytes = compress();
    return bytes;
}

}  // namespace fake
