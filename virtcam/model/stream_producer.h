// Makes the video frames: pictures of the scene, encoded and multiplexed as the host has chosen.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <vector>

#include "virtcam/model/camera_config.h"
#include "virtcam/model/h264_encoder.h"
#include "virtcam/model/image_adjust.h"
#include "virtcam/model/jpeg_encoder.h"
#include "virtcam/model/multiplexer.h"
#include "virtcam/model/probe_commit.h"
#include "virtcam/model/settings.h"
#include "virtcam/model/stream_plan.h"
#include "virtcam/model/uvc_controls.h"
#include "virtcam/model/view.h"

namespace virtcam::model {

/// Everything that one frame depends on, copied out of the device when the frame is due.
struct PictureJob {
    uint64_t generation = 0;     ///< commit that the frame belongs to
    bool first = false;          ///< first frame after the commit
    uint64_t ticks = 1;          ///< clock periods since the frame before
    uint64_t scene_tick = 0;     ///< position of the scene
    std::optional<double> lamp;  ///< of the scene, 0 dark to 1; nothing: no microphone listens
    StreamParameters stream;
    StreamSettings settings;
    UvcControls controls;
    bool key_frame = false;  ///< asked for by the host
    bool still = false;      ///< one JPEG picture asked for by the host
};

/// One picture of a finished frame, for the statistics.
struct SentPicture {
    StreamId id;
    uint32_t sequence;
    size_t bytes;
    bool key_frame;
};

struct FinishedFrame {
    Bytes data;
    uint32_t pts = 0;  ///< 48 MHz device clock since the commit
    std::vector<SentPicture> pictures;
};

/// Not thread-safe: the camera calls it from one thread at a time, outside its state lock.
class StreamProducer {
  public:
    /// Throws std::runtime_error when the configuration's picture source cannot be used.
    explicit StreamProducer(const CameraConfig& config);

    /// The frame that is due, or nothing when no sub-stream is. Throws std::runtime_error when an
    /// encoder fails.
    std::optional<FinishedFrame> make(const PictureJob& job);

  private:
    /// Decides on which clock ticks a sub-stream has a picture.
    class RateGate {
      public:
        bool due(uint64_t ticks, uint32_t rate);

      private:
        uint64_t phase_ = 0;
        bool first_ = true;
    };

    struct Track {
        RateGate gate;
        uint32_t sequence = 0;  ///< of the last picture; running from 1 since the commit
        bool key_pending = false;
        std::unique_ptr<H264Encoder> encoder;
    };

    void restart();
    void plain_frame(const PictureJob& job, FinishedFrame& frame);
    void multiplexed_frame(const PictureJob& job, FinishedFrame& frame);
    bool is_due(const PictureJob& job, StreamId id, Track& track) const;
    void add_picture(const PictureJob& job, StreamId id, Track& track, FinishedFrame& frame);
    Bytes encode(const PictureJob& job, StreamId id, Track& track, FrameSize size);
    Bytes encode_h264(const PictureJob& job, StreamId id, Track& track, FrameSize size);
    const Picture& render(const PictureJob& job, StreamId id, FrameSize size, uint32_t counter);

    std::unique_ptr<PictureSource> source_;
    const Picture* sensor_ = nullptr;  ///< the source's picture for the present job
    std::optional<ImageAdjust> adjust_;
    Resampler resampler_;
    Picture picture_;
    JpegEncoder jpeg_;
    std::map<StreamId, Track> tracks_;
    uint64_t tick_ = 0;  ///< clock periods since the commit
};

}  // namespace virtcam::model
