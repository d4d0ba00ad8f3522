#include "virtcam/model/microphone.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "virtcam/model/usb.h"

namespace virtcam::model {
namespace {

constexpr uint16_t kVolumeResolution = 1;
constexpr double kToneAmplitude = 12000.0;   // at volume 0
constexpr double kClickAmplitude = 30000.0;  // at volume 0
constexpr size_t kBytesPerFrame = 4;

std::optional<Bytes> number(size_t width, uint32_t value) {
    Bytes bytes;
    append_le(bytes, width, value);
    return bytes;
}

}  // namespace

std::optional<Bytes> Microphone::feature(uint8_t request, uint8_t selector, uint8_t channel,
                                         ByteView block) {
    if (channel != 0) {
        return std::nullopt;
    }
    switch (selector) {
        case usb::kFuMute:
            return mute_request(request, block);
        case usb::kFuVolume:
            return volume_request(request, block);
        default:
            return std::nullopt;
    }
}

std::optional<Bytes> Microphone::volume_request(uint8_t request, ByteView block) {
    switch (request) {
        case usb::kSetCur:
            if (block.size() != 2) {
                return std::nullopt;
            }
            volume_ = std::clamp(static_cast<int16_t>(load_u16(block, 0)), kMinVolume, kMaxVolume);
            return Bytes{};
        case usb::kGetCur:
            return number(2, static_cast<uint16_t>(volume_));
        case usb::kGetMin:
            return number(2, static_cast<uint16_t>(kMinVolume));
        case usb::kGetMax:
            return number(2, static_cast<uint16_t>(kMaxVolume));
        case usb::kGetRes:
            return number(2, kVolumeResolution);
        default:
            return std::nullopt;
    }
}

std::optional<Bytes> Microphone::mute_request(uint8_t request, ByteView block) {
    if (request == usb::kGetCur) {
        return number(1, muted_ ? 1 : 0);
    }
    if (request != usb::kSetCur || block.size() != 1) {
        return std::nullopt;
    }
    muted_ = block[0] != 0;
    return Bytes{};
}

std::optional<Bytes> Microphone::frequency(uint8_t request, ByteView block) {
    if (request == usb::kGetCur) {
        return number(3, rate_);
    }
    if (request != usb::kSetCur || block.size() != 3) {
        return std::nullopt;
    }
    const uint32_t wanted = load_le(block, 0, 3);
    if (wanted != 16000 && wanted != 24000) {
        return std::nullopt;
    }
    rate_ = wanted;
    frames_ = 0;
    return Bytes{};
}

double Microphone::gain() const {
    return muted_ ? 0.0 : std::pow(10.0, volume_ / 256.0 / 20.0);
}

int16_t Microphone::sample() const {
    const auto in_second = static_cast<uint32_t>(frames_ % rate_);
    if (in_second < rate_ * kClickMs / 1000) {
        const bool high = in_second / 4 % 2 == 0;
        return static_cast<int16_t>(high ? kClickAmplitude : -kClickAmplitude);
    }
    // The tone's frequency is whole, so its phase repeats each second and needs no accumulator.
    const double phase = 2.0 * std::numbers::pi * tone_hz_ * in_second / rate_;
    return static_cast<int16_t>(kToneAmplitude * std::sin(phase));
}

double Microphone::after_click() const {
    const double in_second = static_cast<double>(frames_ % rate_) / rate_;
    return in_second < 0.5 ? in_second : in_second - 1;
}

Bytes Microphone::packet(size_t room) {
    const size_t frames = std::min<size_t>(rate_ / 1000, room / kBytesPerFrame);
    const double level = gain();
    Bytes bytes;
    bytes.reserve(frames * kBytesPerFrame);
    for (size_t i = 0; i < frames; ++i) {
        const auto value = static_cast<uint16_t>(static_cast<int16_t>(sample() * level));
        append_le(bytes, 2, value);
        append_le(bytes, 2, value);
        ++frames_;
    }
    return bytes;
}

}  // namespace virtcam::model
