#include "host/recorder.h"

#include "host/annexb.h"
#include "host/exit_code.h"
#include "host/h264_writer.h"
#include "host/jpeg_writer.h"
#include "host/raw_picture.h"
#include "host/wav_writer.h"
#include "host/y4m_writer.h"

namespace camhost {

Recorder::Recorder(const StreamSet& streams, const std::filesystem::path& folder, int sample_rate,
                   const RecordQueue::Limits& limits)
    : folder_(folder), sample_rate_(sample_rate), queue_(limits) {
    for (const Stream stream : streams) {
        auto& channel = channels_[static_cast<size_t>(stream)].emplace(stream);
        channel.observer = std::make_unique<StreamObserver>(stream, queue_);
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

void Recorder::attach(ICameraSubject& camera) {
    camera_ = &camera;
    for (const auto& channel : channels_) {
        if (channel) {
            camera.RegisterObserver(channel->observer.get());
        }
    }
}

void Recorder::detach() {
    if (camera_ == nullptr) {
        return;
    }
    for (const auto& channel : channels_) {
        if (channel) {
            camera_->RemoveObserver(channel->observer.get());
        }
    }
    camera_ = nullptr;
}

void Recorder::write_records() {
    Record record;
    while (queue_.pop(&record)) {
        write_record(*channels_[static_cast<size_t>(record.stream)], record);
        if (!record.end_of_stream) {
            records_.fetch_add(1);
        }
    }
}

void Recorder::write_record(Channel& channel, const Record& record) {
    const bool h264 = record.stream == Stream::kH264Main || record.stream == Stream::kH264Sub;
    channel.statistics.add(record, h264 ? parts_of(record.data).slices : 1);
    if (record.end_of_stream || !channel.error.empty()) {
        return;
    }
    try {
        if (channel.writer == nullptr) {
            channel.writer = make_writer(record.stream);
        }
        channel.writer->write(record, channel.statistics.restarted());
    } catch (const Failure& failure) {
        channel.error = failure.what();
    }
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
    return result;
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
