#include "gst/stream_pad.h"

#include <gst/video/video.h>

#include "gst/debug_category.h"

namespace gstcam {

namespace {

constexpr int64_t kSecond = GST_SECOND;
constexpr int64_t kPictureLatency = kSecond / 15;  // of JPEG, which comes when it is asked for
constexpr int64_t kBlockBytes = 960;               // of sound, as the plug-in cuts it
constexpr int64_t kFrameBytes = 4;
constexpr int64_t kTransfer = 10 * kSecond / 1000;  // of sound: ten packets of a millisecond

int64_t latency_of(camhost::Stream stream, const StreamSettings& settings) {
    if (stream == camhost::Stream::kPcm) {
        return kBlockBytes * kSecond / (kFrameBytes * int64_t{settings.sample_rate}) + kTransfer;
    }
    const unsigned rate = stream == camhost::Stream::kH264Main
                              ? static_cast<unsigned>(settings.main_rate)
                              : row_of(stream).rate;
    return rate > 0 ? kSecond / rate : kPictureLatency;
}

StreamPad& self(GstPad* pad) {
    return *static_cast<StreamPad*>(gst_pad_get_element_private(pad));
}

}  // namespace

StreamPad::StreamPad(GstPadTemplate* pad_template, camhost::Stream stream, PadHost& host)
    : host_(host),
      pad_(gst_pad_new_from_template(pad_template, row_of(stream).pad)),
      channel_(std::make_shared<Channel>(stream)),
      latency_(latency_of(stream, {})) {
    gst_object_ref_sink(pad_);
    gst_pad_set_element_private(pad_, this);
    gst_pad_set_activatemode_function(pad_, &StreamPad::activate_mode);
    gst_pad_set_event_function(pad_, &StreamPad::on_event);
    gst_pad_set_query_function(pad_, &StreamPad::on_query);
    gst_pad_use_fixed_caps(pad_);
}

StreamPad::~StreamPad() {
    gst_object_unref(pad_);
}

gboolean StreamPad::activate_mode(GstPad* pad, GstObject*, GstPadMode mode, gboolean active) {
    if (mode != GST_PAD_MODE_PUSH) {
        return FALSE;
    }
    StreamPad& stream = self(pad);
    if (active == FALSE) {
        stream.channel_->queue().close();
        const auto figures = stream.channel_->queue().figures();
        GST_INFO_OBJECT(pad, "%" G_GUINT64_FORMAT " taken, %" G_GUINT64_FORMAT " dropped",
                        figures.taken, figures.dropped);
        return gst_pad_stop_task(pad);
    }
    stream.begun_ = false;
    stream.caps_.reset();
    stream.channel_->open(stream.host_.queue_length());
    stream.channel_->queue().hold(true);  // until the element plays
    return gst_pad_start_task(
        pad, [](gpointer data) { static_cast<StreamPad*>(data)->loop(); }, &stream, nullptr);
}

/// One turn of the pad's thread.
void StreamPad::loop() {
    Channel::Queue::Entry entry;
    switch (channel_->queue().pop(&entry)) {
        case Channel::Queue::Pop::kClosed:
            gst_pad_pause_task(pad_);
            return;
        case Channel::Queue::Pop::kEnd:
            finish();
            return;
        case Channel::Queue::Pop::kEntry:
            break;
    }
    const GstFlowReturn flow = deliver(entry);
    if (flow == GST_FLOW_OK || flow == GST_FLOW_NOT_LINKED) {
        return;  // a pad that is not linked yet, or not any more, does no harm
    }
    if (!channel_->queue().flows()) {
        return;  // the pipeline is being stopped, downstream first: what it answers means nothing
    }
    GST_DEBUG_OBJECT(pad_, "stopping: %s", gst_flow_get_name(flow));
    if (flow == GST_FLOW_EOS) {
        finish();  // downstream has enough, and is told so by an event, as sinks count on
        return;
    }
    channel_->queue().close();
    gst_pad_pause_task(pad_);
    if (flow == GST_FLOW_NOT_NEGOTIATED || flow <= GST_FLOW_ERROR) {
        host_.stopped(flow);
    }
}

void StreamPad::finish() {
    begin_stream();
    gst_pad_push_event(pad_, gst_event_new_eos());
    channel_->queue().close();
    gst_pad_pause_task(pad_);
}

void StreamPad::begin_stream() {
    if (begun_) {
        return;
    }
    begun_ = true;
    gchar* id = gst_pad_create_stream_id(pad_, host_.element, row_of(stream()).pad);
    GstEvent* start = gst_event_new_stream_start(id);
    g_free(id);
    gst_event_set_group_id(start, host_.group_id);
    gst_pad_push_event(pad_, start);
}

void StreamPad::begin_segment() {
    GstSegment segment;
    gst_segment_init(&segment, GST_FORMAT_TIME);
    gst_pad_push_event(pad_, gst_event_new_segment(&segment));
}

/// True when the record can have no other caps than the one before it.
bool StreamPad::shows_nothing_new(const Channel::Queue::Entry& entry) const {
    if (caps_ == nullptr || entry.payload.settings != caps_settings_) {
        return false;
    }
    return row_of(stream()).fixed_size
               ? gst_buffer_get_size(entry.payload.buffer.get()) == caps_bytes_
               : !entry.key;  // the size of encoded pictures changes with a key frame only
}

/// True when the stream's caps are known and downstream has been told.
bool StreamPad::update_caps(const Channel::Queue::Entry& entry) {
    if (shows_nothing_new(entry)) {
        return true;
    }
    const StreamSettings& settings = entry.payload.settings;
    GstMapInfo map;
    if (!gst_buffer_map(entry.payload.buffer.get(), &map, GST_MAP_READ)) {
        return false;
    }
    CapsRef caps = caps_of(stream(), {map.data, map.size}, settings);
    caps_bytes_ = map.size;
    gst_buffer_unmap(entry.payload.buffer.get(), &map);
    if (caps == nullptr) {
        return caps_ != nullptr && is_h264(stream());
    }
    caps_settings_ = settings;
    if (caps_ != nullptr && gst_caps_is_equal(caps.get(), caps_.get())) {
        return true;
    }
    GST_INFO_OBJECT(pad_, "caps %" GST_PTR_FORMAT, caps.get());
    const bool first = caps_ == nullptr;
    caps_ = std::move(caps);
    gst_pad_push_event(pad_, gst_event_new_caps(caps_.get()));
    if (first) {
        begin_segment();
    }
    if (latency_.exchange(latency_of(stream(), settings)) != latency_of(stream(), settings)) {
        gst_element_post_message(host_.element, gst_message_new_latency(GST_OBJECT(host_.element)));
    }
    return true;
}

GstFlowReturn StreamPad::deliver(Channel::Queue::Entry& entry) {
    begin_stream();
    if (!update_caps(entry)) {
        ++unknown_;
        if (!unknown_told_) {
            unknown_told_ = true;
            GST_ELEMENT_WARNING(
                host_.element, STREAM, FORMAT,
                ("A record of %s is not understood.", row_of(stream()).pad),
                ("%" G_GSIZE_FORMAT " bytes", gst_buffer_get_size(entry.payload.buffer.get())));
        }
        return GST_FLOW_OK;
    }
    announce_key_unit(entry);
    if (entry.discontinuity) {
        GST_BUFFER_FLAG_SET(entry.payload.buffer.get(), GST_BUFFER_FLAG_DISCONT);
    }
    const size_t size = gst_buffer_get_size(entry.payload.buffer.get());
    const GstFlowReturn flow = gst_pad_push(pad_, entry.payload.buffer.release());
    if (flow == GST_FLOW_OK) {
        ++pushed_;
        bytes_ += size;
    } else if (flow == GST_FLOW_NOT_LINKED) {
        ++unlinked_;
    }
    return flow;
}

// --- key units on demand

/// Answers the requests of downstream that this picture fulfils.
void StreamPad::announce_key_unit(const Channel::Queue::Entry& entry) {
    std::vector<guint> counts;
    bool all_headers = false;
    if (!is_h264(stream()) || !entry.key) {
        return;
    }
    {
        const std::lock_guard lock(mutex_);
        counts.swap(key_units_);
        all_headers = all_headers_;
    }
    const GstClockTime time = GST_BUFFER_PTS(entry.payload.buffer.get());
    for (const guint count : counts) {
        gst_pad_push_event(pad_, gst_video_event_new_downstream_force_key_unit(time, time, time,
                                                                               all_headers, count));
    }
}

bool StreamPad::force_key_unit(GstEvent* event) {
    GstClockTime when = GST_CLOCK_TIME_NONE;
    gboolean all_headers = FALSE;
    guint count = 0;
    if (!is_h264(stream()) ||
        !gst_video_event_parse_upstream_force_key_unit(event, &when, &all_headers, &count)) {
        return false;
    }
    {
        const std::lock_guard lock(mutex_);
        key_units_.push_back(count);
        all_headers_ = all_headers != FALSE;
    }
    host_.want_key();
    return true;
}

gboolean StreamPad::on_event(GstPad* pad, GstObject* parent, GstEvent* event) {
    bool handled = false;
    switch (GST_EVENT_TYPE(event)) {
        case GST_EVENT_CUSTOM_UPSTREAM:
            handled = gst_video_event_is_force_key_unit(event) && self(pad).force_key_unit(event);
            break;
        case GST_EVENT_LATENCY:
        case GST_EVENT_QOS:
        case GST_EVENT_RECONFIGURE:
            handled = true;
            break;
        case GST_EVENT_SEEK:
            break;  // live
        default:
            return gst_pad_event_default(pad, parent, event);
    }
    gst_event_unref(event);
    return handled ? TRUE : FALSE;
}

// --- latency and figures

gboolean StreamPad::on_query(GstPad* pad, GstObject* parent, GstQuery* query) {
    StreamPad& stream = self(pad);
    if (GST_QUERY_TYPE(query) != GST_QUERY_LATENCY) {
        return gst_pad_query_default(pad, parent, query);
    }
    const auto least = static_cast<GstClockTime>(stream.latency_.load());
    const auto queued = static_cast<GstClockTime>(stream.host_.queue_length());
    gst_query_set_latency(query, TRUE, least, least + queued);
    return TRUE;
}

GstStructure* StreamPad::stats() const {
    const Channel::Queue::Figures figures = channel_->queue().figures();
    return gst_structure_new(
        row_of(stream()).pad, "taken", G_TYPE_UINT64, figures.taken, "dropped", G_TYPE_UINT64,
        figures.dropped, "discontinuities", G_TYPE_UINT64, figures.discontinuities, "queued",
        G_TYPE_UINT64, static_cast<guint64>(figures.queued), "pushed", G_TYPE_UINT64,
        pushed_.load(), "bytes", G_TYPE_UINT64, bytes_.load(), "unlinked", G_TYPE_UINT64,
        unlinked_.load(), "unknown", G_TYPE_UINT64, unknown_.load(), nullptr);
}

}  // namespace gstcam
