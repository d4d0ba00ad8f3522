// A pipeline with aitcamsrc in the test's own process.
#pragma once

#include <gst/app/gstappsink.h>
#include <gst/gst.h>

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace gstcam::test {

struct SampleUnref {
    void operator()(GstSample* sample) const { gst_sample_unref(sample); }
};
using SampleRef = std::unique_ptr<GstSample, SampleUnref>;

struct MessageUnref {
    void operator()(GstMessage* message) const { gst_message_unref(message); }
};
using MessageRef = std::unique_ptr<GstMessage, MessageUnref>;

struct ObjectUnref {
    void operator()(gpointer object) const { gst_object_unref(object); }
};
template <typename Type>
using ObjectRef = std::unique_ptr<Type, ObjectUnref>;

/// An error or warning message, taken apart.
struct Complaint {
    GQuark domain = 0;
    int code = 0;
    std::string text;

    bool is(GQuark of_domain, int of_code) const { return domain == of_domain && code == of_code; }
};

/// Initialises GStreamer and the element, once.
void initialise();

/// Waits end after this long; the test then fails by what it did not get.
inline constexpr std::chrono::seconds kPatience{20};

/// How often a pipeline goes from NULL to PLAYING and back: AITCAM_CYCLES, or `few`.
int cycles(int few);

/// "aitcamsrc name=camera" and what is linked to it, as gst-launch-1.0 writes it. Set to NULL by
/// the destructor.
class Pipeline {
  public:
    explicit Pipeline(const std::string& description);
    ~Pipeline();
    Pipeline(const Pipeline&) = delete;
    Pipeline& operator=(const Pipeline&) = delete;

    void set_state(GstState state);
    void play() { set_state(GST_STATE_PLAYING); }
    void stop() { set_state(GST_STATE_NULL); }

    GstElement* get() const { return pipeline_; }
    GstElement* camera() const { return camera_.get(); }
    /// An element of that name.
    ObjectRef<GstElement> element(const std::string& name) const;
    /// The next sample of the appsink of that name; null after kPatience or at the end.
    SampleRef pull(const std::string& sink) const;
    /// The first message of these types that comes; null after kPatience.
    MessageRef wait_for(GstMessageType types) const;
    /// The first error (or warning) that comes; nothing after kPatience.
    std::optional<Complaint> error() const { return complaint(GST_MESSAGE_ERROR); }
    std::optional<Complaint> warning() const { return complaint(GST_MESSAGE_WARNING); }

    /// A figure of one pad in the element's stats.
    uint64_t figure(const std::string& pad, const std::string& name) const;

  private:
    std::optional<Complaint> complaint(GstMessageType type) const;

    GstElement* pipeline_;
    ObjectRef<GstElement> camera_;
};

std::vector<uint8_t> bytes_of(GstSample* sample);
/// The structure of the sample's caps.
const GstStructure* format_of(GstSample* sample);
int number_in(const GstStructure* structure, const char* field);
std::string text_in(const GstStructure* structure, const char* field);
bool has_flag(GstSample* sample, GstBufferFlags flag);
/// ns
int64_t pts_of(GstSample* sample);

}  // namespace gstcam::test
