#include "virtcam/model/stream_producer.h"

#include "virtcam/model/overlay.h"
#include "virtcam/model/raw_formats.h"
#include "virtcam/model/scene.h"
#include "virtcam/model/y4m_source.h"

namespace virtcam::model {
namespace {

std::unique_ptr<PictureSource> make_source(const CameraConfig& config) {
    if (config.source.empty()) {
        return std::make_unique<Scene>(config.seed);
    }
    return std::make_unique<Y4mSource>(config.source);
}

bool is_h264(StreamId id) {
    return id == StreamId::kMainH264 || id == StreamId::kSecondH264;
}

Orientation orientation(const StreamSettings& settings, StreamId id) {
    const auto has = [&](OptionBit bit) { return (settings.options & bit) != 0; };
    switch (id) {
        case StreamId::kMainH264:
        case StreamId::kSecondH264:
        case StreamId::kJpeg:
            return {has(kOptionMirror), has(kOptionFlip)};
        case StreamId::kGray:
            return {has(kOptionGrayMirror), false};
        default:
            return {has(kOptionLocalMirror), false};
    }
}

const std::optional<CropOrigin>& crop_of(const StreamSettings& settings, StreamId id) {
    return id == StreamId::kGray ? settings.gray_crop : settings.crop;
}

uint16_t rate_field(const StreamSettings& settings, StreamId id) {
    if (id == StreamId::kGray || id == StreamId::kNv12) {
        return crop_of(settings, id).has_value() ? 1 : 0;
    }
    return static_cast<uint16_t>(stream_rate(settings, id));
}

/// The raw or JPEG stream whose treatment a plain format shares.
StreamId plain_stream(FormatKind kind) {
    switch (kind) {
        case FormatKind::kYuy2:
            return StreamId::kYuy2;
        case FormatKind::kNv12:
            return StreamId::kNv12;
        default:
            return StreamId::kJpeg;
    }
}

/// Most bytes of a JPEG picture: alone in its frame, it keeps to the size that was negotiated.
size_t jpeg_limit(const StreamParameters& stream) {
    if (stream.kind == FormatKind::kMultiplexed) {
        return kJpegLimit;
    }
    return max_frame_bytes(video_formats()[stream.format_index - 1U], stream.size);
}

uint32_t scaled_time(uint64_t ticks, uint32_t interval, uint64_t multiply, uint64_t divide) {
    return static_cast<uint32_t>(ticks * interval * multiply / divide);
}

uint32_t following(uint32_t sequence) {
    return sequence == UINT32_MAX ? 1 : sequence + 1;  // 0 would reset the host's detector
}

}  // namespace

StreamProducer::StreamProducer(const CameraConfig& config) : source_(make_source(config)) {}

bool StreamProducer::RateGate::due(uint64_t ticks, uint32_t rate) {
    if (first_) {
        first_ = false;
        return true;
    }
    phase_ += ticks * rate;
    if (phase_ < kClockRate) {
        return false;
    }
    phase_ %= kClockRate;
    return true;
}

void StreamProducer::restart() {
    tracks_.clear();
    tick_ = 0;
}

std::optional<FinishedFrame> StreamProducer::make(const PictureJob& job) {
    if (job.first) {
        restart();
    } else {
        tick_ += job.ticks;
    }
    source_->set_lamp(job.lamp);
    sensor_ = &source_->at(job.scene_tick);
    adjust_.emplace(job.controls, job.settings);
    FinishedFrame frame;
    frame.pts = scaled_time(tick_, job.stream.interval, 48, 10);
    if (job.stream.kind == FormatKind::kMultiplexed) {
        multiplexed_frame(job, frame);
    } else {
        plain_frame(job, frame);
    }
    if (frame.pictures.empty()) {
        return std::nullopt;
    }
    return frame;
}

void StreamProducer::plain_frame(const PictureJob& job, FinishedFrame& frame) {
    const StreamId id = plain_stream(job.stream.kind);
    Track& track = tracks_[id];
    track.sequence = following(track.sequence);
    frame.data = encode(job, id, track, job.stream.size);
    frame.pictures.push_back({id, track.sequence, frame.data.size(), false});
}

void StreamProducer::multiplexed_frame(const PictureJob& job, FinishedFrame& frame) {
    for (const StreamId id : kStreamOrder) {
        Track& track = tracks_[id];
        track.key_pending = track.key_pending || (job.key_frame && is_h264(id));
        if (is_due(job, id, track)) {
            add_picture(job, id, track, frame);
        }
    }
}

bool StreamProducer::is_due(const PictureJob& job, StreamId id, Track& track) const {
    if (carries(job.settings, id)) {
        return track.gate.due(job.ticks, stream_rate(job.settings, id));
    }
    // When the stream comes back, its first picture is due at once, a key frame where there are
    // any.
    track.gate = {};
    track.encoder.reset();
    return id == StreamId::kJpeg && job.still && takes_stills(job.settings);
}

void StreamProducer::add_picture(const PictureJob& job, StreamId id, Track& track,
                                 FinishedFrame& frame) {
    const FrameSize size = stream_size(job.settings, id, job.stream.size);
    track.sequence = following(track.sequence);
    const Bytes data = encode(job, id, track, size);
    append_sub_stream(frame.data,
                      {id, size, rate_field(job.settings, id), track.sequence,
                       scaled_time(tick_, job.stream.interval, 9, 1000)},
                      data);
    frame.pictures.push_back({id, track.sequence, data.size(), is_h264(id) && is_key_frame(data)});
}

Bytes StreamProducer::encode(const PictureJob& job, StreamId id, Track& track, FrameSize size) {
    if (is_h264(id)) {
        return encode_h264(job, id, track, size);
    }
    const Picture& picture = render(job, id, size, track.sequence);
    switch (id) {
        case StreamId::kJpeg:
            return jpeg_.encode(picture, jpeg_limit(job.stream));
        case StreamId::kYuy2:
            return pack_yuy2(picture);
        case StreamId::kNv12:
            return pack_nv12(picture);
        case StreamId::kNv21:
            return pack_nv21(picture);
        default:
            return pack_gray(picture);
    }
}

Bytes StreamProducer::encode_h264(const PictureJob& job, StreamId id, Track& track,
                                  FrameSize size) {
    const StreamRate rate = job.settings.rates[id == StreamId::kMainH264 ? 0 : 1];
    if (track.encoder == nullptr) {
        track.encoder = std::make_unique<H264Encoder>(size, rate);
    }
    track.encoder->set_rate(rate);
    const bool key = track.key_pending;
    track.key_pending = false;
    return track.encoder->encode(render(job, id, size, track.sequence), key);
}

const Picture& StreamProducer::render(const PictureJob& job, StreamId id, FrameSize size,
                                      uint32_t counter) {
    const bool luma_only = id == StreamId::kGray;
    picture_.resize(size.width, size.height);
    const Region region =
        view_region(source_->base_view(), size, job.controls, crop_of(job.settings, id));
    resampler_.run(*sensor_, region, orientation(job.settings, id), luma_only, picture_);
    adjust_->apply(picture_, luma_only);
    draw_overlay(picture_, counter, luma_only);
    return picture_;
}

}  // namespace virtcam::model
