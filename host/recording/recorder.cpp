#include "host/recording/recorder.h"

#include <algorithm>
#include <cmath>
#include <iterator>

#include "host/base/exit_code.h"
#include "host/pictures/annexb.h"
#include "host/pictures/raw_picture.h"
#include "host/writers/h264_writer.h"
#include "host/writers/jpeg_writer.h"
#include "host/writers/wav_writer.h"
#include "host/writers/y4m_writer.h"

namespace camhost {

namespace {
// When recording stops, whoever asked for it, the plug-in sends an empty NV12 record after the last
// one of every stream. The time stamps do not tell: they may jump and wrap.
constexpr Stream kEndTeller = Stream::kNv12;
}  // namespace

Recorder::Recorder(const StreamSet& streams, const std::filesystem::path& folder, int sample_rate,
                   const RecordQueue::Limits& limits)
    : folder_(folder), sample_rate_(sample_rate), queue_(limits) {
    for (const Stream stream : streams) {
        auto& channel = channels_[static_cast<size_t>(stream)];
        channel.emplace(stream, sample_rate);
        channel->observer = std::make_unique<StreamObserver>(stream, queue_);
    }
    if (streams.count(kEndTeller) == 0) {
        end_observer_ = std::make_unique<StreamObserver>(kEndTeller, queue_,
                                                         StreamObserver::Takes::kEndOfStream);
    }
    writer_thread_ = std::thread([this] { write_records(); });
}

Recorder::~Recorder() {
    detach();
    queue_.close();
    if (writer_thread_.joinable()) {
        writer_thread_.join();
    }
}

std::vector<ICameraObserver*> Recorder::observers() const {
    std::vector<ICameraObserver*> all;
    for (const auto& channel : channels_) {
        if (channel) {
            all.push_back(channel->observer.get());
        }
    }
    if (end_observer_ != nullptr) {
        all.push_back(end_observer_.get());
    }
    return all;
}

void Recorder::attach(ICameraSubject& camera) {
    camera_ = &camera;
    for (ICameraObserver* observer : observers()) {
        camera.RegisterObserver(observer);
    }
}

void Recorder::detach() {
    if (camera_ == nullptr) {
        return;
    }
    for (ICameraObserver* observer : observers()) {
        camera_->RemoveObserver(observer);
    }
    camera_ = nullptr;
}

void Recorder::write_records() {
    Record record;
    while (queue_.pop(&record)) {
        auto& channel = channels_[static_cast<size_t>(record.stream)];
        if (channel) {
            write_record(*channel, record);
        }
        if (record.end_of_stream && record.stream == kEndTeller) {
            note_end_of_recording();
        } else if (!record.end_of_stream) {
            records_.fetch_add(1);
        }
    }
}

void Recorder::note_end_of_recording() {
    for (auto& channel : channels_) {
        if (channel) {
            channel->restarts = channel->statistics.records() > 0;
            channel->statistics.set_sample_rate(sample_rate_);
        }
    }
}

void Recorder::write_record(Channel& channel, const Record& record) {
    const bool h264 = record.stream == Stream::kH264Main || record.stream == Stream::kH264Sub;
    const bool restarted = channel.restarts && !record.end_of_stream;
    channel.statistics.add(record, h264 ? parts_of(record.data).slices : 1, restarted);
    if (record.end_of_stream) {
        return;
    }
    channel.restarts = false;
    if (!channel.error.empty()) {
        return;
    }
    try {
        if (channel.writer == nullptr) {
            channel.writer = make_writer(record.stream);
        }
        channel.writer->write(record, restarted);
        if (info(record.stream).time_stamped) {
            note_packet(channel, record, restarted);
        }
    } catch (const Failure& failure) {
        channel.error = failure.what();
    }
}

/// In call mode a key frame comes as three records; they are one packet.
void Recorder::note_packet(Channel& channel, const Record& record, bool restarted) {
    const int64_t time = channel.times.next(record, restarted);
    const AccessUnitParts parts =
        record.stream == Stream::kPcm ? AccessUnitParts{} : parts_of(record.data);
    const bool is_key = parts.sps || parts.idr;
    if (channel.open) {
        channel.packets.back().size += record.data.size();
    } else if (record.stream == Stream::kPcm || is_key || !channel.packets.empty()) {
        // Nothing can be shown before the first key frame.
        channel.packets.push_back({time, channel.written, record.data.size(), is_key});
    }
    channel.open = record.stream != Stream::kPcm && is_key && parts.slices == 0;
    channel.written += record.data.size();
}

std::unique_ptr<StreamWriter> Recorder::make_writer(Stream stream) const {
    if (is_raw(stream)) {
        return std::make_unique<Y4mWriter>(stream, folder_);
    }
    switch (stream) {
        case Stream::kJpeg:
            return std::make_unique<JpegWriter>(folder_);
        case Stream::kPcm:
            return std::make_unique<WavWriter>(folder_, sample_rate_);
        default:
            return std::make_unique<H264Writer>(stream, folder_);
    }
}

std::vector<RecordedStream> Recorder::finish() {
    queue_.close();
    writer_thread_.join();
    std::vector<RecordedStream> result;
    for (const StreamInfo& row : kStreams) {
        auto& channel = channels_[static_cast<size_t>(row.stream)];
        if (channel) {
            result.push_back(finish_channel(row.stream, *channel));
        }
    }
    write_container(result);
    return result;
}

namespace {

/// The rate that is written into a file: of those that cameras have, where it is nearly one.
double nominal_rate(const StreamSummary& figures) {
    if (!figures.time_stamps || figures.time_stamps->median_ms <= 0) {
        return 0;
    }
    constexpr double kRates[] = {1, 2, 5, 10, 15, 20, 24, 25, 30, 60};
    constexpr double kTolerance = 0.08;
    const double rate = 1000 / figures.time_stamps->median_ms;
    const double nearest = *std::min_element(
        std::begin(kRates), std::end(kRates),
        [&](double a, double b) { return std::abs(a - rate) < std::abs(b - rate); });
    return std::abs(rate - nearest) < kTolerance * nearest ? nearest : rate;
}

}  // namespace

std::vector<MkvSound> Recorder::sounds(const RecordedStream& stream) const {
    const auto& packets = channels_[static_cast<size_t>(Stream::kPcm)]->packets;
    // After a change of the rate there are several files; each player takes one rate.
    if (packets.empty() || stream.written.files.size() != 1) {
        return {};
    }
    constexpr int64_t kFrameBytes = 4;
    const int rate = sample_rate_;
    const auto length = static_cast<int64_t>(packets.front().size) * 1'000'000 / kFrameBytes / rate;
    return {{stream.written.files.front(), rate, packets.front().time - length}};
}

/// What is written a second time here lies in the streams' own files, so a failure loses nothing.
void Recorder::write_container(std::vector<RecordedStream>& streams) const {
    std::vector<MkvVideo> videos;
    std::vector<MkvSound> tracks;
    RecordedStream* first = nullptr;
    for (RecordedStream& stream : streams) {
        const auto& channel = channels_[static_cast<size_t>(stream.figures.stream)];
        if (stream.figures.stream == Stream::kPcm) {
            tracks = sounds(stream);
        } else if (info(stream.figures.stream).time_stamped && !channel->packets.empty() &&
                   stream.written.picture_size.width > 0) {
            videos.push_back({stream.written.files.front(), info(stream.figures.stream).name,
                              stream.written.picture_size, nominal_rate(stream.figures),
                              channel->packets});
            first = first == nullptr ? &stream : first;
        }
    }
    if (first == nullptr) {
        return;
    }
    try {
        write_mkv(folder_ / "recording.mkv", videos, tracks);
    } catch (const Failure& failure) {
        first->error = failure.what();
    }
}

RecordedStream Recorder::finish_channel(Stream stream, Channel& channel) const {
    RecordedStream recorded;
    recorded.figures = channel.statistics.summary();
    recorded.figures.dropped = queue_.dropped(stream);
    recorded.error = channel.error;
    if (channel.writer != nullptr) {
        try {
            recorded.written = channel.writer->finish();
        } catch (const Failure& failure) {
            recorded.error = failure.what();
        }
    }
    return recorded;
}

}  // namespace camhost
