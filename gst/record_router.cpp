#include "gst/record_router.h"

namespace gstcam {

RecordRouter::~RecordRouter() {
    pause();
}

void RecordRouter::connect(std::shared_ptr<Channel> channel) {
    const std::lock_guard lock(mutex_);
    channels_[static_cast<size_t>(channel->stream())] = std::move(channel);
}

void RecordRouter::disconnect(camhost::Stream stream) {
    const std::lock_guard lock(mutex_);
    channels_[static_cast<size_t>(stream)].reset();
}

void RecordRouter::run(GstClock* clock, GstClockTime base_time) {
    const std::lock_guard lock(mutex_);
    gst_object_replace(reinterpret_cast<GstObject**>(&clock_), GST_OBJECT(clock));
    base_time_ = base_time;
    picture_times_.reset();
    sound_times_.reset();
}

void RecordRouter::pause() {
    const std::lock_guard no_more(taking_);
    const std::lock_guard lock(mutex_);
    gst_object_replace(reinterpret_cast<GstObject**>(&clock_), nullptr);
}

uint64_t RecordRouter::clock_jumps() const {
    const std::lock_guard lock(mutex_);
    return picture_times_.jumps() + sound_times_.jumps();
}

uint64_t RecordRouter::recordings_ended() const {
    const std::lock_guard lock(mutex_);
    return recordings_ended_;
}

int64_t RecordRouter::instant_of(camhost::Stream stream, const CCameraData& record, int64_t seen) {
    if (!camhost::info(stream).time_stamped) {
        return seen;
    }
    // The two capture threads begin their times apart from each other.
    CaptureTimes& times = stream == camhost::Stream::kPcm ? sound_times_ : picture_times_;
    return times.map(static_cast<uint32_t>(record.m_cts), seen);
}

bool RecordRouter::take(camhost::Stream stream, const CCameraData& record) {
    const std::shared_lock taking(taking_);
    std::shared_ptr<Channel> channel;
    StreamSettings settings;
    int64_t instant = 0;
    {
        const std::lock_guard lock(mutex_);
        if (clock_ == nullptr) {
            return false;
        }
        const auto seen =
            GST_CLOCK_DIFF(base_time_, gst_clock_get_time(clock_));  // both of this clock
        instant = instant_of(stream, record, seen);
        channel = channels_[static_cast<size_t>(stream)];
        settings = settings_;
    }
    return channel != nullptr &&
           channel->take({static_cast<const uint8_t*>(record.m_pData), record.m_size}, instant,
                         settings);
}

void RecordRouter::recording_ended() {
    const std::lock_guard lock(mutex_);
    picture_times_.reset();
    sound_times_.reset();
    settings_ = next_settings_;
    ++recordings_ended_;
    for (const auto& channel : channels_) {
        if (channel != nullptr) {
            channel->recording_ended();
        }
    }
}

void RecordRouter::settings(const StreamSettings& settings, bool after_restart) {
    const std::lock_guard lock(mutex_);
    next_settings_ = settings;
    if (!after_restart) {
        settings_ = settings;
    }
}

}  // namespace gstcam
