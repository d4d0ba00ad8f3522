// From the plug-in's observers to the channels of the pads that are there.
#pragma once

#include <gst/gst.h>

#include <array>
#include <memory>
#include <mutex>
#include <shared_mutex>

#include "gst/camera_control.h"
#include "gst/capture_times.h"
#include "gst/channel.h"

namespace gstcam {

/// Finds the instant and the channel of each record. Any thread.
class RecordRouter : public RecordSink {
  public:
    RecordRouter() = default;
    ~RecordRouter() override;
    RecordRouter(const RecordRouter&) = delete;
    RecordRouter& operator=(const RecordRouter&) = delete;

    /// Records of the channel's stream go there from now on.
    void connect(std::shared_ptr<Channel> channel);
    void disconnect(camhost::Stream stream);

    /// Records get running times of this clock; before, they are dropped.
    void run(GstClock* clock, GstClockTime base_time);
    /// Afterwards no channel is given a record, until run().
    void pause();

    /// Jumps of the plug-in's time that were put right.
    uint64_t clock_jumps() const;
    uint64_t recordings_ended() const;

    bool take(camhost::Stream stream, const CCameraData& record) override;
    void recording_ended() override;
    void settings(const StreamSettings& settings, bool after_restart) override;

  private:
    int64_t instant_of(camhost::Stream stream, const CCameraData& record, int64_t seen);

    std::shared_mutex taking_;  ///< held by capture threads with a record on its way; before mutex_
    mutable std::mutex mutex_;
    std::array<std::shared_ptr<Channel>, camhost::kStreamCount> channels_;
    GstClock* clock_ = nullptr;  ///< null while not running
    GstClockTime base_time_ = 0;
    CaptureTimes picture_times_;
    CaptureTimes sound_times_;
    StreamSettings settings_;
    StreamSettings next_settings_;
    uint64_t recordings_ended_ = 0;
};

}  // namespace gstcam
