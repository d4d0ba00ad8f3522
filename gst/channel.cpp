#include "gst/channel.h"

#include <algorithm>

namespace gstcam {

namespace {

constexpr int64_t kSecond = GST_SECOND;
constexpr int64_t kKeyPatience = kSecond;  // from one request to the next: requests get lost
constexpr size_t kFrameBytes = 4;          // of sound: two channels of 16 bits

int64_t interval_of(unsigned rate) {
    return rate > 0 ? kSecond / rate : 0;
}

}  // namespace

Channel::Channel(camhost::Stream stream)
    : stream_(stream), queue_(is_h264(stream)), pool_(row_of(stream).fixed_size) {}

void Channel::open(int64_t queue_length) {
    recording_ended();
    last_time_.reset();
    queue_.open(queue_length);
}

void Channel::recording_ended() {
    queue_.break_off();
    units_.reset();
    sound_times_.reset();
    key_asked_at_.reset();
}

bool Channel::take(std::span<const uint8_t> record, int64_t instant,
                   const StreamSettings& settings) {
    if (is_h264(stream_)) {
        return take_access_unit(record, instant, settings);
    }
    if (stream_ == camhost::Stream::kPcm) {
        take_sound(record, instant, settings);
    } else {
        take_picture(record, instant, settings);
    }
    return false;
}

/// One picture that is missing doubles the interval; jitter of a busy machine stays below this.
bool Channel::gap_before(int64_t time, int64_t interval) const {
    return last_time_ && interval > 0 && time - *last_time_ > interval * 7 / 4;
}

bool Channel::take_access_unit(std::span<const uint8_t> record, int64_t instant,
                               const StreamSettings& settings) {
    const auto unit = units_.add(record);
    if (!unit) {
        return false;
    }
    const bool main = stream_ == camhost::Stream::kH264Main;
    const int64_t interval =
        interval_of(main ? static_cast<unsigned>(settings.main_rate) : row_of(stream_).rate);
    // After a loss on its way the plug-in is silent until a key frame.
    if (unit->lost || (unit->key && gap_before(instant, interval))) {
        queue_.break_off();
    }
    const auto pushed = push(unit->head, unit->body, {instant, interval}, unit->key, settings);
    if (pushed == Queue::Push::kTaken) {
        key_asked_at_.reset();
    }
    const bool wants_key = pushed == Queue::Push::kDroppedForWantOfKey &&
                           (!key_asked_at_ || instant - *key_asked_at_ >= kKeyPatience);
    if (wants_key) {
        key_asked_at_ = instant;
    }
    return wants_key;
}

void Channel::take_sound(std::span<const uint8_t> record, int64_t instant,
                         const StreamSettings& settings) {
    const auto frames = static_cast<int64_t>(record.size() / kFrameBytes);
    const SoundTimes::Block block = sound_times_.next(frames, settings.sample_rate, instant);
    if (block.lost) {
        queue_.break_off();
    }
    push({}, record, {block.begin, block.duration}, true, settings);
}

void Channel::take_picture(std::span<const uint8_t> record, int64_t instant,
                           const StreamSettings& settings) {
    const int64_t interval = interval_of(row_of(stream_).rate);
    if (gap_before(instant, interval)) {
        queue_.break_off();
    }
    push({}, record, {instant, interval}, true, settings);
}

Channel::Queue::Push Channel::push(std::span<const uint8_t> head, std::span<const uint8_t> body,
                                   Moment moment, bool key, const StreamSettings& settings) {
    moment.time = std::max({moment.time, last_time_.value_or(0), int64_t{0}});
    last_time_ = moment.time;
    auto result = queue_.would_take(moment.time, key);
    if (result == Queue::Push::kTaken) {
        BufferRef buffer = pool_.copy(head, body);
        if (buffer) {
            GST_BUFFER_PTS(buffer.get()) = static_cast<GstClockTime>(moment.time);
            if (is_h264(stream_)) {  // no B pictures
                GST_BUFFER_DTS(buffer.get()) = GST_BUFFER_PTS(buffer.get());
            }
            GST_BUFFER_DURATION(buffer.get()) = moment.duration > 0
                                                    ? static_cast<GstClockTime>(moment.duration)
                                                    : GST_CLOCK_TIME_NONE;
            if (!key) {
                GST_BUFFER_FLAG_SET(buffer.get(), GST_BUFFER_FLAG_DELTA_UNIT);
            }
            return queue_.push({{std::move(buffer), settings}, moment.time, key, false});
        }
        result = Queue::Push::kDropped;  // no memory
    }
    if (result != Queue::Push::kClosed) {
        queue_.note_drop();
    }
    return result;
}

}  // namespace gstcam
