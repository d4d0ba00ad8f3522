// A source pad of the element: a channel of the camera and the thread that pushes it downstream.
#pragma once

#include <gst/gst.h>

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "gst/channel.h"
#include "gst/stream_caps.h"

namespace gstcam {

/// What the pads of one element share.
struct PadHost {
    GstElement* element = nullptr;  ///< owns the pads
    guint group_id = 0;
    std::function<int64_t()> queue_length;       ///< ns
    std::function<void()> want_key;              ///< any thread; does not wait
    std::function<void(GstFlowReturn)> stopped;  ///< a pad's thread gave up for good
};

class StreamPad {
  public:
    /// A pad that is neither active nor part of the element yet. `host` is borrowed.
    StreamPad(GstPadTemplate* pad_template, camhost::Stream stream, PadHost& host);
    /// The pad is inactive and its thread has ended.
    ~StreamPad();
    StreamPad(const StreamPad&) = delete;
    StreamPad& operator=(const StreamPad&) = delete;

    GstPad* pad() const { return pad_; }
    const std::shared_ptr<Channel>& channel() const { return channel_; }
    camhost::Stream stream() const { return channel_->stream(); }

    /// Figures of the stream: records taken, dropped, ...
    GstStructure* stats() const;

  private:
    static gboolean activate_mode(GstPad* pad, GstObject* parent, GstPadMode mode, gboolean active);
    static gboolean on_event(GstPad* pad, GstObject* parent, GstEvent* event);
    static gboolean on_query(GstPad* pad, GstObject* parent, GstQuery* query);

    void loop();
    void begin_stream();
    GstFlowReturn deliver(Channel::Queue::Entry& entry);
    bool update_caps(const Channel::Queue::Entry& entry);
    void announce_key_unit(const Channel::Queue::Entry& entry);
    bool force_key_unit(GstEvent* event);
    bool shows_nothing_new(const Channel::Queue::Entry& entry) const;
    void begin_segment();
    void finish();

    PadHost& host_;
    GstPad* pad_;
    std::shared_ptr<Channel> channel_;

    // The pad's thread, or while it does not run.
    bool begun_ = false;
    bool unknown_told_ = false;
    CapsRef caps_;
    StreamSettings caps_settings_;
    size_t caps_bytes_ = 0;  ///< of the record that showed them

    /// How late a record is pushed at most after its time stamp, in ns, when none waits before it.
    std::atomic<int64_t> latency_;

    std::mutex mutex_;
    std::vector<guint> key_units_;  ///< counts of force-key-unit events that wait for their picture
    bool all_headers_ = false;

    std::atomic<uint64_t> pushed_{0};
    std::atomic<uint64_t> bytes_{0};
    std::atomic<uint64_t> unlinked_{0};
    std::atomic<uint64_t> unknown_{0};
};

}  // namespace gstcam
