#include "tests/gst/pipeline.h"

#include <cstdlib>
#include <stdexcept>

#include "gst/aitcamsrc.h"
#include "gst/camera_device_provider.h"

namespace gstcam::test {

void initialise() {
    static const bool done = [] {
        gst_init(nullptr, nullptr);
        return GST_ELEMENT_REGISTER(aitcamsrc, nullptr) != FALSE &&
               GST_DEVICE_PROVIDER_REGISTER(aitcamdeviceprovider, nullptr) != FALSE;
    }();
    if (!done) {
        throw std::runtime_error("the element cannot be registered");
    }
}

int cycles(int few) {
    const char* text = std::getenv("AITCAM_CYCLES");
    return text != nullptr ? std::atoi(text) : few;
}

Pipeline::Pipeline(const std::string& description) {
    initialise();
    GError* error = nullptr;
    pipeline_ =
        gst_parse_launch_full(description.c_str(), nullptr, GST_PARSE_FLAG_FATAL_ERRORS, &error);
    if (pipeline_ == nullptr) {
        const std::string text = error->message;
        g_error_free(error);
        throw std::runtime_error(text);
    }
    if (!GST_IS_PIPELINE(pipeline_)) {  // an element alone
        GstElement* alone = pipeline_;
        pipeline_ = gst_pipeline_new(nullptr);
        gst_bin_add(GST_BIN(pipeline_), alone);
    }
    camera_.reset(gst_bin_get_by_name(GST_BIN(pipeline_), "camera"));
}

Pipeline::~Pipeline() {
    gst_element_set_state(pipeline_, GST_STATE_NULL);
    camera_.reset();
    gst_object_unref(pipeline_);
}

void Pipeline::set_state(GstState state) {
    if (gst_element_set_state(pipeline_, state) == GST_STATE_CHANGE_FAILURE) {
        throw std::runtime_error("the state change failed");
    }
}

ObjectRef<GstElement> Pipeline::element(const std::string& name) const {
    return ObjectRef<GstElement>(gst_bin_get_by_name(GST_BIN(pipeline_), name.c_str()));
}

SampleRef Pipeline::pull(const std::string& sink) const {
    const auto appsink = element(sink);
    return SampleRef(gst_app_sink_try_pull_sample(
        GST_APP_SINK(appsink.get()), static_cast<GstClockTime>(kPatience.count()) * GST_SECOND));
}

MessageRef Pipeline::wait_for(GstMessageType types) const {
    const ObjectRef<GstBus> bus(gst_element_get_bus(pipeline_));
    return MessageRef(gst_bus_timed_pop_filtered(
        bus.get(), static_cast<GstClockTime>(kPatience.count()) * GST_SECOND, types));
}

std::optional<Complaint> Pipeline::complaint(GstMessageType type) const {
    const MessageRef message = wait_for(type);
    if (message == nullptr) {
        return std::nullopt;
    }
    GError* error = nullptr;
    if (type == GST_MESSAGE_ERROR) {
        gst_message_parse_error(message.get(), &error, nullptr);
    } else {
        gst_message_parse_warning(message.get(), &error, nullptr);
    }
    Complaint result{error->domain, error->code, error->message};
    g_error_free(error);
    return result;
}

uint64_t Pipeline::figure(const std::string& pad, const std::string& name) const {
    GstStructure* stats = nullptr;
    g_object_get(camera(), "stats", &stats, nullptr);
    GstStructure* one = nullptr;
    guint64 value = 0;
    if (gst_structure_get(stats, pad.c_str(), GST_TYPE_STRUCTURE, &one, nullptr)) {
        gst_structure_get_uint64(one, name.c_str(), &value);
        gst_structure_free(one);
    }
    gst_structure_free(stats);
    return value;
}

std::vector<uint8_t> bytes_of(GstSample* sample) {
    GstBuffer* buffer = gst_sample_get_buffer(sample);
    std::vector<uint8_t> bytes(gst_buffer_get_size(buffer));
    gst_buffer_extract(buffer, 0, bytes.data(), bytes.size());
    return bytes;
}

const GstStructure* format_of(GstSample* sample) {
    return gst_caps_get_structure(gst_sample_get_caps(sample), 0);
}

int number_in(const GstStructure* structure, const char* field) {
    gint number = -1;
    gint below = 1;
    if (!gst_structure_get_int(structure, field, &number)) {
        gst_structure_get_fraction(structure, field, &number, &below);
    }
    return number;
}

std::string text_in(const GstStructure* structure, const char* field) {
    const gchar* text = gst_structure_get_string(structure, field);
    return text != nullptr ? text : "";
}

bool has_flag(GstSample* sample, GstBufferFlags flag) {
    return GST_BUFFER_FLAG_IS_SET(gst_sample_get_buffer(sample), flag);
}

int64_t pts_of(GstSample* sample) {
    return static_cast<int64_t>(GST_BUFFER_PTS(gst_sample_get_buffer(sample)));
}

}  // namespace gstcam::test
