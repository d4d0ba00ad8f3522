#include "virtcam/model/stream_plan.h"

#include <algorithm>

namespace virtcam::model {
namespace {

constexpr uint8_t bit(StreamId id) {
    switch (id) {
        case StreamId::kMainH264:
            return 0x01;
        case StreamId::kSecondH264:
            return 0x02;
        case StreamId::kJpeg:
            return 0x04;
        case StreamId::kGray:
            return 0x08;
        case StreamId::kYuy2:
            return 0x10;
        case StreamId::kNv21:
            return 0x20;
        case StreamId::kNv12:
            break;
    }
    return 0;
}

struct Combination {
    uint8_t streams;
    bool stills;
};

constexpr uint8_t kMain = bit(StreamId::kMainH264);
constexpr uint8_t kSecond = bit(StreamId::kSecondH264);
constexpr uint8_t kJpeg = bit(StreamId::kJpeg);
constexpr uint8_t kGray = bit(StreamId::kGray);
constexpr uint8_t kYuy2 = bit(StreamId::kYuy2);
constexpr uint8_t kNv21 = bit(StreamId::kNv21);

// Index: stream-combination code.
constexpr std::array<Combination, kCombinationCount> kCombinations{{
    {kMain | kYuy2, false},
    {kMain | kGray, false},
    {kGray, false},
    {kMain | kSecond | kGray, false},
    {kMain | kNv21, false},
    {kMain | kGray, true},
    {kMain | kGray, true},
    {kMain | kSecond, false},
    {kMain | kJpeg, false},
}};

bool is_wide(FrameSize size) {
    return size.width * 9 == size.height * 16;
}

FrameSize local_size(uint8_t code) {
    switch (code) {
        case kLocal640x360:
            return {640, 360};
        case kLocal800x450:
            return {800, 450};
        default:
            return {640, 480};
    }
}

/// Most bits per second of a sub-stream.
uint32_t most_bits(const StreamSettings& settings, StreamId id, FrameSize main) {
    const FrameSize size = stream_size(settings, id, main);
    const uint32_t pixels = uint32_t{size.width} * size.height;
    switch (id) {
        case StreamId::kMainH264:
        case StreamId::kSecondH264:
            return kMostH264Rate;
        case StreamId::kJpeg:
            return std::min(kJpegLimit, pixels * 2) * 8 * kJpegRate;
        case StreamId::kGray:
            return pixels * 8 * kRawRate;
        case StreamId::kYuy2:
            return pixels * 16 * kRawRate;
        case StreamId::kNv12:
        case StreamId::kNv21:
            break;
    }
    return pixels * 12 * kRawRate;
}

}  // namespace

bool is_local_size(uint8_t code) {
    return code == 0 || code == kLocal640x360 || code == kLocal800x450;
}

bool carries(const StreamSettings& settings, StreamId id) {
    if (id == StreamId::kNv12) {
        return settings.nv12_mode != 0;
    }
    return (kCombinations[settings.combination].streams & bit(id)) != 0;
}

bool takes_stills(const StreamSettings& settings) {
    return kCombinations[settings.combination].stills;
}

FrameSize stream_size(const StreamSettings& settings, StreamId id, FrameSize main) {
    switch (id) {
        case StreamId::kMainH264:
        case StreamId::kJpeg:
            return main;
        case StreamId::kSecondH264:
            return is_wide(main) ? FrameSize{640, 360} : FrameSize{320, 240};
        case StreamId::kGray:
            return {320, 240};
        case StreamId::kNv12:
            return settings.nv12_wide ? FrameSize{864, 486} : FrameSize{640, 480};
        case StreamId::kYuy2:
        case StreamId::kNv21:
            break;
    }
    return local_size(settings.local_size);
}

uint32_t stream_rate(const StreamSettings& settings, StreamId id) {
    switch (id) {
        case StreamId::kMainH264:
            return std::clamp<uint32_t>(settings.rates[0].fps, 1, kClockRate);
        case StreamId::kSecondH264:
            return std::clamp<uint32_t>(settings.rates[1].fps, 1, kClockRate);
        case StreamId::kJpeg:
            return kJpegRate;
        default:
            return kRawRate;
    }
}

BitRates multiplexed_bit_rates(FrameSize main) {
    StreamSettings heaviest;
    heaviest.nv12_mode = 1;
    heaviest.nv12_wide = true;
    heaviest.local_size = kLocal800x450;
    BitRates rates{kLeastH264Rate, 0};  // one H.264 stream and nothing else is due
    for (uint8_t code = 0; code < kCombinationCount; ++code) {
        heaviest.combination = code;
        uint32_t bits = 0;
        for (const StreamId id : kStreamOrder) {
            bits += carries(heaviest, id) ? most_bits(heaviest, id, main) : 0;
        }
        rates.most = std::max(rates.most, bits);
    }
    return rates;
}

}  // namespace virtcam::model
