#include "virtcam/model/device.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "virtcam/model/usb.h"

namespace virtcam::model {
namespace {

constexpr FirmwareVersion kBootCodeVersion{0x00, 0x00, 0x01, 0x00, 0x00, 0x00};
// Pace of the scene while only face tracking watches it.
constexpr std::chrono::milliseconds kIdlePeriod{100};
constexpr uint64_t kTicksPerIdlePeriod = 3;

SensorFacts make_facts(const CameraConfig& config, Personality personality,
                       const Firmware& firmware) {
    SensorFacts facts;
    facts.version = personality == Personality::kRunTime
                        ? image_version(firmware.flash().value_or(Bytes{}))
                        : kBootCodeVersion;
    facts.lux = config.lux;
    facts.self_test_result = config.self_test_result;
    return facts;
}

Clock::duration period_of(const StreamParameters& stream) {
    return std::chrono::nanoseconds(int64_t{stream.interval} * 100);
}

}  // namespace

Device::Device(const CameraConfig& config, Personality personality, Firmware& firmware)
    : config_(config),
      personality_(personality),
      state_{firmware, make_facts(config, personality, firmware), {}, {}, {}},
      extension_(personality, state_),
      negotiation_(config.max_payload),
      microphone_(config.tone_hz),
      queue_(config.max_payload, config.header_only_eof) {
    state_.firmware.reset();
}

bool Device::bulk_out(uint8_t endpoint, ByteView data) {
    return descriptors::has_endpoint(personality_, endpoint) && state_.firmware.bulk_data(data);
}

std::optional<Bytes> Device::bulk_in(uint8_t endpoint, size_t room, TimePoint now) {
    if (endpoint != usb::kEndpointVideo || !streaming_) {
        return std::nullopt;
    }
    auto payload = queue_.take(room, {device_clock(now), bus_frame_number(now)});
    if (payload && !queue_.busy()) {
        note_delay(now - taken_);
    }
    return payload;
}

Bytes Device::iso_in(uint8_t endpoint, size_t room) {
    if (endpoint != usb::kEndpointAudio || audio_alternate_ == 0) {
        return {};
    }
    return microphone_.packet(std::min<size_t>(room, usb::kAudioPacketBytes));
}

void Device::bus_reset() {
    stop_stream();
    halted_.clear();
    audio_alternate_ = 0;
    configuration_ = 0;
}

bool Device::take_burned() {
    return std::exchange(state_.requests.burned, false);
}

uint32_t Device::device_clock(TimePoint now) const {
    constexpr int64_t kTicksPerMicrosecond = 48;
    const auto elapsed = std::max(now - clock_zero_, Clock::duration::zero());
    return static_cast<uint32_t>(std::chrono::nanoseconds(elapsed).count() * kTicksPerMicrosecond /
                                 1000);
}

void Device::start_stream(const StreamParameters& parameters) {
    streaming_ = true;
    ++generation_;
    stream_ = parameters;
    first_frame_ = true;
    waiting_ticks_ = 0;
    next_due_.reset();
    delay_ = {};
    queue_.restart();
}

void Device::stop_stream() {
    streaming_ = false;
    queue_.restart();
}

std::optional<PictureJob> Device::next_job(TimePoint now) {
    if (!streaming_) {
        if (state_.settings.face_tracking && idle_due_.value_or(now) <= now) {
            idle_due_ = now + kIdlePeriod;
            advance_scene(kTicksPerIdlePeriod);
        }
        return std::nullopt;
    }
    if (config_.paced) {
        const TimePoint due = next_due_.value_or(now);
        if (due > now) {
            return std::nullopt;
        }
        const auto periods = static_cast<uint64_t>(1 + (now - due) / period_of(stream_));
        waiting_ticks_ += periods;
        next_due_ = due + period_of(stream_) * static_cast<int64_t>(periods);
        if (queue_.busy()) {
            return std::nullopt;  // the host is too slow: this period is skipped
        }
    } else {
        if (queue_.busy()) {
            return std::nullopt;
        }
        ++waiting_ticks_;
    }
    advance_scene(waiting_ticks_);
    if (first_frame_) {
        clock_zero_ = now;
    }
    taken_ = now;
    PictureJob job;
    job.generation = generation_;
    job.first = std::exchange(first_frame_, false);
    job.ticks = std::exchange(waiting_ticks_, 0);
    job.scene_tick = scene_tick_;
    job.lamp = lamp();
    job.stream = stream_;
    job.settings = state_.settings.stream;
    job.controls = controls_;
    job.key_frame = std::exchange(state_.requests.key_frame, false);
    job.still = std::exchange(state_.requests.still, false);
    return job;
}

bool Device::publish(uint64_t generation, FinishedFrame&& frame) {
    if (!streaming_ || generation != generation_) {
        return false;
    }
    queue_.put(std::move(frame.data), frame.pts);
    return true;
}

void Device::abandon(uint64_t generation) {
    if (generation == generation_) {
        stop_stream();
    }
}

TimePoint Device::next_wake(TimePoint now) const {
    if (streaming_) {
        if (config_.paced) {
            return next_due_.value_or(now);
        }
        return queue_.busy() ? TimePoint::max() : now;
    }
    return state_.settings.face_tracking ? idle_due_.value_or(now) : TimePoint::max();
}

void Device::advance_scene(uint64_t ticks) {
    scene_tick_ += ticks;
    if (state_.settings.face_tracking) {
        face_tick_ = scene_tick_;
    }
}

void Device::look_for_faces() {
    if (!detects_faces()) {
        face_tick_.reset();
    } else if (!face_tick_) {
        face_tick_ = scene_tick_;
    }
}

/// A steady figure of what differs from frame to frame. A host that lets pictures wait is none of the
/// camera's delay.
void Device::note_delay(Clock::duration delay) {
    constexpr int kSteadiness = 4;
    delay_ += (std::min(delay, period_of(stream_)) - delay_) / kSteadiness;
}

/// The lamp is on for one picture period about each click, and a picture shows the share of its own
/// period in which it was: so the two pictures beside a click tell its moment to the millisecond.
///
/// Sound leaves at once, and a picture when it is encoded, the later the larger it is. Nothing that
/// the host gets tells it by how much, so the camera keeps the two together, as those do that hold
/// back their sound: a picture shows the lamp of the moment at which it will leave.
std::optional<double> Device::lamp() const {
    if (audio_alternate_ == 0) {
        return std::nullopt;
    }
    const std::chrono::duration<double> period = period_of(stream_);
    const std::chrono::duration<double> delay = delay_;
    return std::max(0.0, 1 - std::abs(microphone_.after_click() + delay.count()) / period.count());
}

bool Device::detects_faces() const {
    return state_.settings.face_tracking ||
           (state_.settings.stream.options & kOptionFaceDetection) != 0;
}

}  // namespace virtcam::model
