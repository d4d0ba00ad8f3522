// One stream between the plug-in's capture thread and a pad's streaming thread.
#pragma once

#include <gst/gst.h>

#include <memory>
#include <optional>
#include <span>

#include "gst/buffer_pool.h"
#include "gst/camera_control.h"
#include "gst/capture_times.h"
#include "gst/h264_stream.h"
#include "gst/stream_queue.h"
#include "gst/stream_table.h"

namespace gstcam {

/// Makes buffers of records: one copy, a time stamp, the flags of loss.
class Channel {
  public:
    struct Parcel {
        BufferRef buffer;
        StreamSettings settings;
    };
    using Queue = StreamQueue<Parcel>;

    explicit Channel(camhost::Stream stream);

    camhost::Stream stream() const { return stream_; }
    Queue& queue() { return queue_; }

    /// Begins anew, with a queue of so many ns. No take() meanwhile.
    void open(int64_t queue_length);
    /// Takes a record that was there at `instant` (ns of running time). The capture thread; never
    /// waits. True when the stream would go on sooner if a key frame were asked for.
    bool take(std::span<const uint8_t> record, int64_t instant, const StreamSettings& settings);
    /// The records that follow belong to another recording. No take() meanwhile.
    void recording_ended();

  private:
    struct Moment {
        int64_t time = 0;
        int64_t duration = 0;  ///< 0: not known
    };

    bool take_access_unit(std::span<const uint8_t> record, int64_t instant,
                          const StreamSettings& settings);
    void take_sound(std::span<const uint8_t> record, int64_t instant,
                    const StreamSettings& settings);
    void take_picture(std::span<const uint8_t> record, int64_t instant,
                      const StreamSettings& settings);
    Queue::Push push(std::span<const uint8_t> head, std::span<const uint8_t> body, Moment moment,
                     bool key, const StreamSettings& settings);
    bool gap_before(int64_t time, int64_t interval) const;

    const camhost::Stream stream_;
    Queue queue_;
    BufferPool pool_;
    AccessUnits units_;
    SoundTimes sound_times_;
    std::optional<int64_t> last_time_;
    std::optional<int64_t> key_asked_at_;
};

}  // namespace gstcam
