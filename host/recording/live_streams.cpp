#include "host/recording/live_streams.h"

#include <algorithm>
#include <cmath>

#include "host/pictures/annexb.h"
#include "host/streams/statistics.h"

namespace camhost {

namespace {

constexpr size_t kIntervalsKept = 300;
constexpr size_t kFrameBytes = 4;  // 16-bit stereo

double median_of(const std::deque<double>& values) {
    std::vector<double> sorted(values.begin(), values.end());
    const auto middle = sorted.begin() + static_cast<std::ptrdiff_t>(sorted.size() / 2);
    std::nth_element(sorted.begin(), middle, sorted.end());
    return *middle;
}

double deviation_of(const std::deque<double>& values) {
    double sum = 0;
    double squares = 0;
    for (const double value : values) {
        sum += value;
        squares += value * value;
    }
    const auto count = static_cast<double>(values.size());
    return std::sqrt(std::max(0.0, squares / count - sum / count * (sum / count)));
}

int16_t sample_at(const std::vector<uint8_t>& bytes, size_t at) {
    return static_cast<int16_t>(bytes[at] | bytes[at + 1] << 8);
}

}  // namespace

LiveStreams::LiveStreams() {
    for (const StreamInfo& row : kStreams) {
        observers_.push_back(std::make_unique<StreamObserver>(row.stream, queue_));
    }
    thread_ = std::thread([this] { run(); });
}

LiveStreams::~LiveStreams() {
    detach();
    queue_.close();
    thread_.join();
}

void LiveStreams::attach(ICameraSubject& camera) {
    camera_ = &camera;
    for (const auto& observer : observers_) {
        camera.RegisterObserver(observer.get());
    }
}

void LiveStreams::detach() {
    if (camera_ == nullptr) {
        return;
    }
    for (const auto& observer : observers_) {
        camera_->RemoveObserver(observer.get());
    }
    camera_ = nullptr;
}

void LiveStreams::run() {
    Record record;
    while (queue_.pop(&record)) {
        if (!record.end_of_stream) {
            add(record);
        }
    }
}

void LiveStreams::add(const Record& record) {
    const std::lock_guard lock(mutex_);
    Channel& channel = channels_[static_cast<size_t>(record.stream)];
    ++channel.records;
    channel.recent_bytes += record.data.size();
    if (record.stream == Stream::kPcm) {
        add_sound(record, channel);
    }
    bool delivers = true;
    if (record.stream == Stream::kH264Main || record.stream == Stream::kH264Sub) {
        const AccessUnitParts parts = parts_of(record.data);
        delivers = parts.slices > 0;  // In call mode parameter sets are records of their own.
        if (parts.idr) {
            if (channel.last_key) {
                channel.key_interval =
                    std::chrono::duration<double>(record.arrival - *channel.last_key).count();
            }
            channel.last_key = record.arrival;
        }
    }
    if (!delivers) {
        return;
    }
    ++channel.recent;
    if (channel.last) {
        channel.intervals.push_back(
            std::chrono::duration<double, std::milli>(record.arrival - *channel.last).count());
        channel.recent_intervals += 1;
    }
    channel.last = record.arrival;
}

void LiveStreams::add_sound(const Record& record, Channel& channel) {
    sound_.add(record.arrival.time_since_epoch(), record.data.size() / kFrameBytes);
    for (size_t at = 0; at + 1 < record.data.size(); at += 2) {
        const double sample = sample_at(record.data, at) / 32768.0;
        channel.square_sum += sample * sample;
        ++channel.samples;
    }
}

void LiveStreams::note_gaps(Channel& channel) {
    if (channel.intervals.empty()) {
        return;
    }
    const double longest = IntervalTracker::kGapFactor * median_of(channel.intervals);
    const size_t recent = std::min(channel.recent_intervals, channel.intervals.size());
    channel.gaps += static_cast<uint64_t>(
        std::count_if(channel.intervals.end() - static_cast<std::ptrdiff_t>(recent),
                      channel.intervals.end(), [&](double each) { return each > longest; }));
    while (channel.intervals.size() > kIntervalsKept) {
        channel.intervals.pop_front();
    }
    channel.recent_intervals = 0;
}

LiveFigures LiveStreams::figures(const StreamInfo& row, Channel& channel, double seconds) const {
    LiveFigures figures;
    figures.stream = row.stream;
    figures.records_per_second = static_cast<double>(channel.recent) / seconds;
    figures.kilobits_per_second = static_cast<double>(channel.recent_bytes) * 8 / 1000 / seconds;
    figures.gaps = row.stream == Stream::kPcm ? sound_.summary().gaps : channel.gaps;
    figures.jitter_ms = channel.intervals.empty() ? 0 : deviation_of(channel.intervals);
    figures.key_interval = channel.key_interval;
    if (channel.samples > 0) {
        const double power = channel.square_sum / static_cast<double>(channel.samples);
        figures.level_db = 10 * std::log10(std::max(power, 1e-12));
    }
    figures.dropped = queue_.dropped(row.stream);
    channel.recent = 0;
    channel.recent_bytes = 0;
    channel.square_sum = 0;
    channel.samples = 0;
    return figures;
}

std::vector<LiveFigures> LiveStreams::take() {
    const std::lock_guard lock(mutex_);
    const auto now = Clock::now();
    const double seconds = std::max(1e-3, std::chrono::duration<double>(now - taken_).count());
    taken_ = now;
    std::vector<LiveFigures> all;
    for (const StreamInfo& row : kStreams) {
        Channel& channel = channels_[static_cast<size_t>(row.stream)];
        if (channel.records > 0) {
            note_gaps(channel);
            all.push_back(figures(row, channel, seconds));
        }
    }
    return all;
}

}  // namespace camhost
