#include "host/writers/mkv_file.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/channel_layout.h>
}

#include <sndfile.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <memory>

#include "host/base/exit_code.h"
#include "host/base/file_bytes.h"

namespace camhost {

namespace {

constexpr AVRational kMicroseconds{1, 1'000'000};

void require(bool good, const std::filesystem::path& path) {
    if (!good) {
        throw Failure(ExitCode::kFailed, "cannot write " + path.string());
    }
}

/// The container under construction.
class Muxer {
  public:
    explicit Muxer(std::filesystem::path path) : path_(std::move(path)) {
        require(avformat_alloc_output_context2(&context_, nullptr, "matroska", path_.c_str()) >= 0,
                path_);
    }
    ~Muxer() {
        if (context_->pb != nullptr) {
            avio_closep(&context_->pb);
        }
        avformat_free_context(context_);
    }
    Muxer(const Muxer&) = delete;
    Muxer& operator=(const Muxer&) = delete;

    AVStream* add_track(AVMediaType type, AVCodecID codec, const std::string& name) {
        AVStream* track = avformat_new_stream(context_, nullptr);
        require(track != nullptr, path_);
        track->codecpar->codec_type = type;
        track->codecpar->codec_id = codec;
        track->time_base = kMicroseconds;
        av_dict_set(&track->metadata, "title", name.c_str(), 0);
        return track;
    }

    void begin() {
        require(avio_open(&context_->pb, path_.c_str(), AVIO_FLAG_WRITE) >= 0, path_);
        require(avformat_write_header(context_, nullptr) >= 0, path_);
    }

    void write(const AVStream& track, int64_t time, int64_t duration, bool key,
               const std::vector<uint8_t>& bytes) {
        const std::unique_ptr<AVPacket, void (*)(AVPacket*)> packet(
            av_packet_alloc(), [](AVPacket* each) { av_packet_free(&each); });
        require(
            packet != nullptr && av_new_packet(packet.get(), static_cast<int>(bytes.size())) >= 0,
            path_);
        std::memcpy(packet->data, bytes.data(), bytes.size());
        packet->stream_index = track.index;
        packet->pts = av_rescale_q(time, kMicroseconds, track.time_base);
        packet->dts = packet->pts;
        packet->duration = av_rescale_q(duration, kMicroseconds, track.time_base);
        packet->flags = key ? AV_PKT_FLAG_KEY : 0;
        require(av_interleaved_write_frame(context_, packet.get()) >= 0, path_);
    }

    void end() {
        require(av_write_trailer(context_) >= 0, path_);
        require(avio_closep(&context_->pb) >= 0, path_);
    }

  private:
    std::filesystem::path path_;
    AVFormatContext* context_ = nullptr;
};

/// A track's packets, one after the other.
class Track {
  public:
    virtual ~Track() = default;
    /// Time of the next packet; false when there is none any more.
    virtual bool next(int64_t& time) const = 0;
    virtual void write(Muxer& muxer, int64_t begin) = 0;
};

class VideoTrack : public Track {
  public:
    VideoTrack(Muxer& muxer, const MkvVideo& video)
        : video_(video), track_(muxer.add_track(AVMEDIA_TYPE_VIDEO, AV_CODEC_ID_H264, video.name)) {
        AVCodecParameters& parameters = *track_->codecpar;
        parameters.width = video.size.width;
        parameters.height = video.size.height;
        const MkvPacket& first = video.packets.front();
        const auto bytes = read_file(video.file, first.offset, first.size);
        parameters.extradata =
            static_cast<uint8_t*>(av_mallocz(bytes.size() + AV_INPUT_BUFFER_PADDING_SIZE));
        std::memcpy(parameters.extradata, bytes.data(), bytes.size());
        parameters.extradata_size = static_cast<int>(bytes.size());
        if (video.pictures_per_second > 0) {
            constexpr int kLargest = 1001;
            track_->avg_frame_rate = av_d2q(video.pictures_per_second, kLargest);
            track_->r_frame_rate = track_->avg_frame_rate;
        }
    }

    bool next(int64_t& time) const override {
        if (at_ == video_.packets.size()) {
            return false;
        }
        time = video_.packets[at_].time;
        return true;
    }

    void write(Muxer& muxer, int64_t begin) override {
        const MkvPacket& packet = video_.packets[at_++];
        muxer.write(*track_, packet.time - begin, 0, packet.key,
                    read_file(video_.file, packet.offset, packet.size));
    }

  private:
    const MkvVideo& video_;
    AVStream* track_;
    size_t at_ = 0;
};

class SoundTrack : public Track {
  public:
    SoundTrack(Muxer& muxer, const MkvSound& sound)
        : sound_(sound),
          file_(sf_open(sound.file.c_str(), SFM_READ, &format_), sf_close),
          track_(muxer.add_track(AVMEDIA_TYPE_AUDIO, AV_CODEC_ID_PCM_S16LE, "sound")) {
        AVCodecParameters& parameters = *track_->codecpar;
        parameters.format = AV_SAMPLE_FMT_S16;
        parameters.sample_rate = sound.rate;
        parameters.bits_per_coded_sample = 16;
        av_channel_layout_default(&parameters.ch_layout, 2);
    }

    bool next(int64_t& time) const override {
        if (file_ == nullptr || at_ >= format_.frames) {
            return false;
        }
        time = sound_.time + at_ * 1'000'000 / sound_.rate;
        return true;
    }

    void write(Muxer& muxer, int64_t begin) override {
        int64_t time = 0;
        next(time);
        const sf_count_t wanted = std::min<sf_count_t>(sound_.rate / 25, format_.frames - at_);
        std::vector<int16_t> samples(static_cast<size_t>(wanted * format_.channels));
        const sf_count_t got = sf_readf_short(file_.get(), samples.data(), wanted);
        if (got <= 0) {
            at_ = format_.frames;
            return;
        }
        std::vector<uint8_t> bytes;
        for (size_t i = 0; i < static_cast<size_t>(got * format_.channels); ++i) {
            bytes.push_back(static_cast<uint8_t>(samples[i] & 0xFF));
            bytes.push_back(static_cast<uint8_t>(samples[i] >> 8 & 0xFF));
        }
        at_ += got;
        muxer.write(*track_, time - begin, got * 1'000'000 / sound_.rate, true, bytes);
    }

  private:
    const MkvSound& sound_;
    SF_INFO format_{};
    std::unique_ptr<SNDFILE, int (*)(SNDFILE*)> file_;
    AVStream* track_;
    sf_count_t at_ = 0;  ///< frames
};

using Tracks = std::vector<std::unique_ptr<Track>>;

/// The track whose next packet is the earliest; null when all are through.
Track* earliest(const Tracks& tracks, int64_t& time) {
    Track* found = nullptr;
    for (const auto& track : tracks) {
        int64_t next = 0;
        if (track->next(next) && (found == nullptr || next < time)) {
            found = track.get();
            time = next;
        }
    }
    return found;
}

}  // namespace

void write_mkv(const std::filesystem::path& path, const std::vector<MkvVideo>& videos,
               const std::vector<MkvSound>& sounds) {
    Muxer muxer(path);
    Tracks tracks;
    for (const MkvVideo& video : videos) {
        if (!video.packets.empty()) {
            tracks.push_back(std::make_unique<VideoTrack>(muxer, video));
        }
    }
    for (const MkvSound& sound : sounds) {
        tracks.push_back(std::make_unique<SoundTrack>(muxer, sound));
    }
    muxer.begin();
    int64_t begin = 0;
    int64_t time = 0;
    for (bool first = true; Track* track = earliest(tracks, time); first = false) {
        begin = first ? time : begin;
        track->write(muxer, begin);
    }
    muxer.end();
}

}  // namespace camhost
