// The element on a plug-in that needs no camera: pads, messages, properties, states.
#include <gmock/gmock.h>
#include <gst/video/video.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <string_view>
#include <thread>

#include "gst/record_router.h"
#include "host/pictures/annexb.h"
#include "host/properties/property_catalog.h"
#include "tests/gst/pipeline.h"
#include "tests/host/fake_content.h"

namespace gstcam::test {
namespace {

using testing::HasSubstr;

constexpr int64_t kSecond = GST_SECOND;
constexpr const char* kSink = " ! appsink name=sink sync=false async=false max-buffers=200";

/// `how` is what the fake plug-in does (tests/host/fake_plugin.cpp).
std::string camera(const std::string& properties = "") {
    return std::string("aitcamsrc name=camera plugin=") + getenv("FAKE_PLUGIN") + " " + properties +
           " ";
}

class Element : public testing::Test {
  protected:
    void SetUp() override { behave(""); }
    static void behave(const char* how) { setenv("FAKE_CAMERA", how, 1); }
};

struct PadCase {
    const char* pad;
    const char* media;
    const char* format;  ///< value of the field "format"; empty: none
    int width;
    int height;
    int rate;  ///< pictures per second; sound: samples
};

class Pad : public Element, public testing::WithParamInterface<PadCase> {};

TEST_P(Pad, DeliversWithCapsAndTimes) {
    const PadCase& want = GetParam();
    const Pipeline pipeline(camera("jpeg-interval=50") + "camera." + want.pad + kSink);
    const_cast<Pipeline&>(pipeline).play();
    int64_t last = 0;
    for (int i = 0; i < 5; ++i) {
        const SampleRef sample = pipeline.pull("sink");
        ASSERT_NE(sample, nullptr) << i;
        const GstStructure* format = format_of(sample.get());
        EXPECT_STREQ(gst_structure_get_name(format), want.media);
        EXPECT_EQ(text_in(format, "format"), want.format);
        if (want.width > 0) {
            EXPECT_EQ(number_in(format, "width"), want.width);
            EXPECT_EQ(number_in(format, "height"), want.height);
        }
        EXPECT_EQ(number_in(format, want.width > 0 ? "framerate" : "rate"), want.rate);
        const int64_t step = pts_of(sample.get()) - last;
        // On a busy machine pictures come late; a gap of H.264 is marked with a key frame alone.
        const bool gap = want.rate > 0 && step > kSecond / want.rate * 7 / 4;
        const bool can_mark = std::string_view(want.media) != "video/x-h264" ||
                              !has_flag(sample.get(), GST_BUFFER_FLAG_DELTA_UNIT);
        EXPECT_EQ(has_flag(sample.get(), GST_BUFFER_FLAG_DISCONT), i == 0 || (gap && can_mark))
            << i << " after " << step << " ns";
        EXPECT_GE(step, 0);
        last = pts_of(sample.get());
    }
    EXPECT_EQ(pipeline.figure(want.pad, "dropped"), 0U);
    EXPECT_GE(pipeline.figure(want.pad, "taken"), 5U);
}

INSTANTIATE_TEST_SUITE_P(
    All, Pad,
    testing::Values(PadCase{"main", "video/x-h264", "", fake::kWidth, fake::kHeight, 30},
                    PadCase{"sub", "video/x-h264", "", fake::kWidth, fake::kHeight, 15},
                    PadCase{"jpeg", "image/jpeg", "", fake::kWidth, fake::kHeight, 0},
                    PadCase{"gray", "video/x-raw", "GRAY8", 320, 240, 10},
                    PadCase{"yuy2", "video/x-raw", "YUY2", 640, 360, 10},
                    PadCase{"nv12", "video/x-raw", "NV12", 864, 486, 10},
                    PadCase{"nv21", "video/x-raw", "NV21", 800, 450, 10}),
    [](const auto& each) { return each.param.pad; });

TEST_F(Element, SoundHasItsRateAndLengths) {
    Pipeline pipeline(camera() + " camera.audio" + kSink);
    pipeline.play();
    const SampleRef sample = pipeline.pull("sink");
    ASSERT_NE(sample, nullptr);
    EXPECT_EQ(text_in(format_of(sample.get()), "format"), "S16LE");
    EXPECT_EQ(number_in(format_of(sample.get()), "rate"), 16000);
    EXPECT_EQ(GST_BUFFER_DURATION(gst_sample_get_buffer(sample.get())), 15 * GST_MSECOND);
}

TEST_F(Element, KeyFrameInPartsIsOneAccessUnit) {
    behave("call-mode");
    Pipeline pipeline(camera() + " camera.main" + kSink);
    pipeline.play();
    const SampleRef sample = pipeline.pull("sink");
    ASSERT_NE(sample, nullptr);
    EXPECT_EQ(bytes_of(sample.get()), fake::h264_units().front());
    EXPECT_FALSE(has_flag(sample.get(), GST_BUFFER_FLAG_DELTA_UNIT));
    const SampleRef next = pipeline.pull("sink");
    ASSERT_NE(next, nullptr);
    EXPECT_EQ(bytes_of(next.get()), fake::h264_units()[1]);
    EXPECT_TRUE(has_flag(next.get(), GST_BUFFER_FLAG_DELTA_UNIT));
}

// --- what goes wrong, by domain and code

std::optional<Complaint> error_of(const std::string& description) {
    Pipeline pipeline(description);
    pipeline.play();
    return pipeline.error();
}

TEST_F(Element, PluginThatCannotBeLoaded) {
    const auto error = error_of("aitcamsrc name=camera plugin=/none.so camera.main ! fakesink");
    ASSERT_TRUE(error);
    EXPECT_TRUE(error->is(GST_LIBRARY_ERROR, GST_LIBRARY_ERROR_INIT));
    EXPECT_THAT(error->text, HasSubstr("/none.so"));
    EXPECT_THAT(error->text, HasSubstr("AITCAM_PLUGIN"));
}

TEST_F(Element, CameraThatIsNotThere) {
    behave("not-usable");
    const auto error = error_of(camera() + "camera.main ! fakesink");
    ASSERT_TRUE(error);
    EXPECT_TRUE(error->is(GST_RESOURCE_ERROR, GST_RESOURCE_ERROR_NOT_FOUND));
    EXPECT_THAT(error->text, HasSubstr("plug it in"));
}

TEST_F(Element, CameraOfWhichNothingIsReported) {
    behave("never-reports");
    const auto error = error_of(camera("init-timeout=1") + "camera.main ! fakesink");
    ASSERT_TRUE(error);
    EXPECT_TRUE(error->is(GST_RESOURCE_ERROR, GST_RESOURCE_ERROR_OPEN_READ_WRITE));
    EXPECT_THAT(error->text, HasSubstr("within 1 s"));
}

TEST_F(Element, RecordingThatDoesNotStart) {
    behave("start-fails");
    const auto error = error_of(camera() + "camera.main ! fakesink");
    ASSERT_TRUE(error);
    EXPECT_TRUE(error->is(GST_RESOURCE_ERROR, GST_RESOURCE_ERROR_OPEN_READ));
}

TEST_F(Element, StreamsThatDoNotGoTogether) {
    const auto error = error_of(camera() + "camera.gray ! fakesink camera.yuy2 ! fakesink");
    ASSERT_TRUE(error);
    EXPECT_TRUE(error->is(GST_RESOURCE_ERROR, GST_RESOURCE_ERROR_SETTINGS));
    EXPECT_THAT(error->text, HasSubstr("No combination of streams carries gray, yuy2"));
    EXPECT_THAT(error->text, HasSubstr("h264-yuyv (main, yuy2, audio)"));
}

TEST_F(Element, CombinationByNameThatLacksAPad) {
    const auto error = error_of(camera("combination=gray") + "camera.main ! fakesink");
    ASSERT_TRUE(error);
    EXPECT_THAT(error->text, HasSubstr("gray does not carry all of main"));
}

TEST_F(Element, CombinationThatTheTelevisionLacks) {
    behave("video-mode");
    const auto error = error_of(camera("combination=h264-gray") + "camera.main ! fakesink");
    ASSERT_TRUE(error);
    EXPECT_TRUE(error->is(GST_RESOURCE_ERROR, GST_RESOURCE_ERROR_SETTINGS));
    EXPECT_THAT(error->text, HasSubstr("there is no video mode 'h264-gray'"));
}

TEST_F(Element, SecondElementIsToldThatTheCameraIsInUse) {
    Pipeline first(camera() + "camera.main" + kSink);
    first.play();
    ASSERT_NE(first.pull("sink"), nullptr);
    const auto error = error_of(camera() + "camera.main ! fakesink");
    ASSERT_TRUE(error);
    EXPECT_TRUE(error->is(GST_RESOURCE_ERROR, GST_RESOURCE_ERROR_BUSY));
}

TEST_F(Element, LostCameraEndsTheStreamAndTheNextStartWorks) {
    behave("lost");
    Pipeline pipeline(camera() + "camera.main" + kSink);
    pipeline.play();
    const auto error = pipeline.error();
    ASSERT_TRUE(error);
    EXPECT_TRUE(error->is(GST_RESOURCE_ERROR, GST_RESOURCE_ERROR_READ));
    int pulled = 0;
    while (pipeline.pull("sink") != nullptr) {
        ++pulled;
    }
    EXPECT_EQ(pulled, 10) << "what came before is kept";
    pipeline.stop();
    behave("");
    pipeline.play();
    EXPECT_NE(pipeline.pull("sink"), nullptr);
}

TEST_F(Element, RecordOfUnknownSizeIsToldOnceAndCounted) {
    behave("odd-size");
    Pipeline pipeline(camera() + "camera.gray ! fakesink async=false camera.main" + kSink);
    pipeline.play();
    const auto warning = pipeline.warning();
    ASSERT_TRUE(warning);
    EXPECT_TRUE(warning->is(GST_STREAM_ERROR, GST_STREAM_ERROR_FORMAT));
    for (int i = 0; i < 300 && pipeline.figure("gray", "unknown") < 2; ++i) {
        ASSERT_NE(pipeline.pull("sink"), nullptr);
    }
    EXPECT_GE(pipeline.figure("gray", "unknown"), 2U);
    const ObjectRef<GstBus> bus(gst_element_get_bus(pipeline.get()));
    EXPECT_EQ(MessageRef(gst_bus_pop_filtered(bus.get(), GST_MESSAGE_WARNING)), nullptr);
}

TEST_F(Element, DownstreamThatRefusesStopsThePipelineWithAnError) {
    Pipeline pipeline(camera() + "camera.main ! identity error-after=5 ! fakesink");
    pipeline.play();
    EXPECT_TRUE(pipeline.error());
}

TEST_F(Element, DownstreamThatHasEnoughEndsThePipeline) {
    Pipeline pipeline(camera() + "camera.main ! fakesink num-buffers=3");
    pipeline.play();
    EXPECT_NE(pipeline.wait_for(GST_MESSAGE_EOS), nullptr);
}

// --- progress

TEST_F(Element, TellsTheWayToTheCamera) {
    Pipeline pipeline(camera() + "camera.main ! fakesink");
    pipeline.play();
    std::vector<GstProgressType> types;
    while (types.empty() || types.back() != GST_PROGRESS_TYPE_COMPLETE) {
        const MessageRef message = pipeline.wait_for(GST_MESSAGE_PROGRESS);
        ASSERT_NE(message, nullptr);
        GstProgressType type{};
        gst_message_parse_progress(message.get(), &type, nullptr, nullptr);
        types.push_back(type);
    }
    EXPECT_THAT(types, testing::ElementsAre(GST_PROGRESS_TYPE_START, GST_PROGRESS_TYPE_COMPLETE));
}

// --- properties, signals, events

TEST_F(Element, HasEveryPropertyOfTheCatalogueWithWords) {
    initialise();
    const ObjectRef<GstElement> element(gst_element_factory_make("aitcamsrc", nullptr));
    for (const camhost::Property& row : camhost::property_catalog()) {
        const std::string name =
            row.name[0] == '3' ? std::string("camera-") + row.name : std::string(row.name);
        GParamSpec* spec =
            g_object_class_find_property(G_OBJECT_GET_CLASS(element.get()), name.c_str());
        ASSERT_NE(spec, nullptr) << name;
        EXPECT_EQ((spec->flags & G_PARAM_WRITABLE) != 0, row.settable) << name;
        EXPECT_THAT(g_param_spec_get_blurb(spec), HasSubstr(row.about)) << name;
        EXPECT_THAT(g_param_spec_get_blurb(spec), HasSubstr(row.range)) << name;
        EXPECT_THAT(g_param_spec_get_blurb(spec), HasSubstr(row.unit)) << name;
        EXPECT_STRNE(row.about, "") << name;
    }
}

TEST_F(Element, PropertySetBeforehandIsAppliedWhenTheCameraIsThere) {
    Pipeline pipeline(camera("bitrate=1500000 brightness=7") + "camera.main" + kSink);
    gint bitrate = 0;
    g_object_get(pipeline.camera(), "bitrate", &bitrate, nullptr);
    EXPECT_EQ(bitrate, 1500000) << "remembered";
    pipeline.play();
    ASSERT_NE(pipeline.pull("sink"), nullptr);
    g_object_set(pipeline.camera(), "contrast", 9, nullptr);
    gint brightness = 0;
    g_object_get(pipeline.camera(), "brightness", &brightness, nullptr);
    EXPECT_EQ(brightness, 7) << "as the plug-in reads it";
}

TEST_F(Element, PropertySetFromAnotherThreadIsThereWhenTheCallReturns) {
    Pipeline pipeline(camera() + "camera.main" + kSink);
    pipeline.play();
    ASSERT_NE(pipeline.pull("sink"), nullptr);
    std::thread([&] {
        g_object_set(pipeline.camera(), "zoom", 4, "mirror", TRUE, nullptr);
    }).join();
    gint zoom = 0;
    gboolean mirror = FALSE;
    g_object_get(pipeline.camera(), "zoom", &zoom, "mirror", &mirror, nullptr);
    EXPECT_EQ(zoom, 4);
    EXPECT_TRUE(mirror) << "the camera does not tell: what was set";
}

TEST_F(Element, RefusedPropertyIsAWarning) {
    Pipeline pipeline(camera() + "camera.main" + kSink);
    pipeline.play();
    ASSERT_NE(pipeline.pull("sink"), nullptr);
    g_object_set(pipeline.camera(), "sharpness", 3, nullptr);
    const auto warning = pipeline.warning();
    ASSERT_TRUE(warning);
    EXPECT_TRUE(warning->is(GST_RESOURCE_ERROR, GST_RESOURCE_ERROR_SETTINGS));
    EXPECT_THAT(warning->text, HasSubstr("sharpness=3: refused"));
}

TEST_F(Element, SizeThatItHasAlreadyIsNoWarning) {
    Pipeline pipeline(camera("size=640x480") + "camera.main" + kSink);
    pipeline.play();
    ASSERT_NE(pipeline.pull("sink"), nullptr);
    const ObjectRef<GstBus> bus(gst_element_get_bus(pipeline.get()));
    EXPECT_EQ(MessageRef(gst_bus_pop_filtered(bus.get(), GST_MESSAGE_WARNING)), nullptr);
}

TEST_F(Element, TextThatIsNoSizeIsAWarningThatSaysWhatItWants) {
    Pipeline pipeline(camera() + "camera.main" + kSink);
    g_object_set(pipeline.camera(), "size", "big", nullptr);
    const auto warning = pipeline.warning();
    ASSERT_TRUE(warning);
    EXPECT_THAT(warning->text, HasSubstr("a size such as 640x480"));
}

TEST_F(Element, FrameRateShowsInTheCaps) {
    Pipeline pipeline(camera("fps=20") + "camera.main" + kSink);
    pipeline.play();
    SampleRef sample = pipeline.pull("sink");
    ASSERT_NE(sample, nullptr);
    EXPECT_EQ(number_in(format_of(sample.get()), "framerate"), 20);
    g_object_set(pipeline.camera(), "fps", 25, nullptr);
    for (int i = 0; i < 60 && number_in(format_of(sample.get()), "framerate") != 25; ++i) {
        sample = pipeline.pull("sink");
        ASSERT_NE(sample, nullptr);
    }
    EXPECT_EQ(number_in(format_of(sample.get()), "framerate"), 25);
}

TEST_F(Element, SamplingRateChangesWithTheFirstBlockAfterTheRestart) {
    Pipeline pipeline(camera() + "camera.audio" + kSink);
    pipeline.play();
    SampleRef sample = pipeline.pull("sink");
    ASSERT_NE(sample, nullptr);
    g_object_set(pipeline.camera(), "sample-rate", 24000, nullptr);
    for (int i = 0; i < 200 && number_in(format_of(sample.get()), "rate") != 24000; ++i) {
        sample = pipeline.pull("sink");
        ASSERT_NE(sample, nullptr);
    }
    EXPECT_EQ(number_in(format_of(sample.get()), "rate"), 24000);
    EXPECT_TRUE(has_flag(sample.get(), GST_BUFFER_FLAG_DISCONT));
    EXPECT_EQ(GST_BUFFER_DURATION(gst_sample_get_buffer(sample.get())), 10 * GST_MSECOND);
}

TEST_F(Element, JpegComesForTheSignalAlone) {
    Pipeline pipeline(camera("jpeg-interval=0") + "camera.jpeg" + kSink +
                      " camera.main ! appsink name=main sync=false async=false");
    pipeline.play();
    for (int i = 0; i < 10; ++i) {
        ASSERT_NE(pipeline.pull("main"), nullptr);
    }
    EXPECT_EQ(pipeline.figure("jpeg", "taken"), 0U);
    g_signal_emit_by_name(pipeline.camera(), "trigger-jpeg");
    EXPECT_NE(pipeline.pull("sink"), nullptr);
    EXPECT_EQ(pipeline.figure("jpeg", "taken"), 1U);
}

TEST_F(Element, ForceKeyUnitIsAnsweredWithTheNextKeyFrame) {
    Pipeline pipeline(camera() + "camera.main ! identity name=watch" + kSink);
    const auto watch = pipeline.element("watch");
    const ObjectRef<GstPad> pad(gst_element_get_static_pad(watch.get(), "sink"));
    std::atomic<guint> answered{0};
    gst_pad_add_probe(
        pad.get(), GST_PAD_PROBE_TYPE_EVENT_DOWNSTREAM,
        [](GstPad*, GstPadProbeInfo* info, gpointer data) {
            guint count = 0;
            if (gst_video_event_parse_downstream_force_key_unit(
                    GST_PAD_PROBE_INFO_EVENT(info), nullptr, nullptr, nullptr, nullptr, &count)) {
                static_cast<std::atomic<guint>*>(data)->store(count);
            }
            return GST_PAD_PROBE_OK;
        },
        &answered, nullptr);
    pipeline.play();
    ASSERT_NE(pipeline.pull("sink"), nullptr);
    EXPECT_TRUE(gst_element_send_event(
        watch.get(), gst_video_event_new_upstream_force_key_unit(GST_CLOCK_TIME_NONE, TRUE, 77)));
    SampleRef sample;
    do {
        sample = pipeline.pull("sink");
        ASSERT_NE(sample, nullptr);
    } while (answered == 0);
    EXPECT_EQ(answered, 77U);
}

TEST_F(Element, LatencyIsAFrameAndTheQueue) {
    Pipeline pipeline(camera("queue-time=500") + "camera.main" + kSink);
    pipeline.play();
    ASSERT_NE(pipeline.pull("sink"), nullptr);
    const ObjectRef<GstPad> pad(gst_element_get_static_pad(pipeline.camera(), "main"));
    GstQuery* query = gst_query_new_latency();
    ASSERT_TRUE(gst_pad_query(pad.get(), query));
    gboolean live = FALSE;
    GstClockTime least = 0;
    GstClockTime most = 0;
    gst_query_parse_latency(query, &live, &least, &most);
    gst_query_unref(query);
    EXPECT_TRUE(live);
    EXPECT_EQ(least, GST_SECOND / 30);
    EXPECT_EQ(most, GST_SECOND / 30 + 500 * GST_MSECOND);
}

TEST_F(Element, EndOfStreamReachesEverySink) {
    Pipeline pipeline(camera() + "camera.main ! fakesink camera.gray ! fakesink");
    pipeline.play();
    ASSERT_TRUE(gst_element_send_event(pipeline.get(), gst_event_new_eos()));
    EXPECT_NE(pipeline.wait_for(GST_MESSAGE_EOS), nullptr);
}

// --- pads that come and go, and one that does not keep up

/// Requests the pad of that name and links it to a new appsink "late".
ObjectRef<GstPad> request(const Pipeline& pipeline, const char* pad) {
    GstElement* sink = gst_element_factory_make("appsink", "late");
    g_object_set(sink, "sync", FALSE, "async", FALSE, nullptr);
    gst_bin_add(GST_BIN(pipeline.get()), sink);
    gst_element_sync_state_with_parent(sink);
    ObjectRef<GstPad> source(gst_element_request_pad_simple(pipeline.camera(), pad));
    const ObjectRef<GstPad> target(gst_element_get_static_pad(sink, "sink"));
    EXPECT_EQ(gst_pad_link(source.get(), target.get()), GST_PAD_LINK_OK);
    return source;
}

TEST_F(Element, PadRequestedWhilePlayingBeginsWithAKeyFrame) {
    Pipeline pipeline(camera() + "camera.main" + kSink);
    pipeline.play();
    ASSERT_NE(pipeline.pull("sink"), nullptr);
    const ObjectRef<GstPad> pad = request(pipeline, "sub");
    const SampleRef first = pipeline.pull("late");
    ASSERT_NE(first, nullptr);
    EXPECT_FALSE(has_flag(first.get(), GST_BUFFER_FLAG_DELTA_UNIT));
    EXPECT_NE(pipeline.pull("sink"), nullptr);
}

TEST_F(Element, PadReleasedWhilePlayingLeavesTheOthersAlone) {
    Pipeline pipeline(camera() + "camera.main" + kSink);
    pipeline.play();
    ASSERT_NE(pipeline.pull("sink"), nullptr);
    for (int i = 0; i < 5; ++i) {
        const ObjectRef<GstPad> pad = request(pipeline, "gray");
        ASSERT_NE(pipeline.pull("late"), nullptr);
        gst_element_release_request_pad(pipeline.camera(), pad.get());
        const auto sink = pipeline.element("late");
        gst_element_set_state(sink.get(), GST_STATE_NULL);
        gst_bin_remove(GST_BIN(pipeline.get()), sink.get());
    }
    EXPECT_NE(pipeline.pull("sink"), nullptr);
    const ObjectRef<GstPad> pad(gst_element_get_static_pad(pipeline.camera(), "gray"));
    EXPECT_EQ(pad, nullptr);
}

TEST_F(Element, PadIsThereOnce) {
    const Pipeline pipeline(camera() + "camera.main ! fakesink");
    GstElementClass* element_class = GST_ELEMENT_GET_CLASS(pipeline.camera());
    EXPECT_EQ(element_class->request_new_pad(
                  pipeline.camera(), gst_element_class_get_pad_template(element_class, "main"),
                  nullptr, nullptr),
              nullptr);
}

/// Holds the first sample until it is let go.
class Gate {
  public:
    static GstPadProbeReturn hold(GstPad*, GstPadProbeInfo*, gpointer data) {
        auto& gate = *static_cast<Gate*>(data);
        std::unique_lock lock(gate.mutex_);
        gate.changed_.wait(lock, [&] { return gate.open_; });
        return GST_PAD_PROBE_OK;
    }
    void open() {
        const std::lock_guard lock(mutex_);
        open_ = true;
        changed_.notify_all();
    }

  private:
    std::mutex mutex_;
    std::condition_variable changed_;
    bool open_ = false;
};

TEST_F(Element, SlowPipelineDropsTheNewestAndGoesOnWithAMarkedKeyFrame) {
    Gate gate;
    Pipeline pipeline(camera("queue-time=300") + "camera.main ! identity name=slow" + kSink);
    const auto slow = pipeline.element("slow");
    const ObjectRef<GstPad> pad(gst_element_get_static_pad(slow.get(), "sink"));
    gst_pad_add_probe(pad.get(), GST_PAD_PROBE_TYPE_BUFFER, &Gate::hold, &gate, nullptr);
    pipeline.play();
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    while (pipeline.figure("main", "dropped") < 30 && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    EXPECT_LE(pipeline.figure("main", "queued"), 11U) << "300 ms at 30 pictures per second";
    gate.open();
    SampleRef sample = pipeline.pull("sink");
    ASSERT_NE(sample, nullptr);
    int64_t last = pts_of(sample.get());
    do {
        sample = pipeline.pull("sink");
        ASSERT_NE(sample, nullptr);
        const int64_t step = pts_of(sample.get()) - last;
        last = pts_of(sample.get());
        if (step > 500 * static_cast<int64_t>(GST_MSECOND)) {
            EXPECT_TRUE(has_flag(sample.get(), GST_BUFFER_FLAG_DISCONT)) << step;
        }
    } while (!has_flag(sample.get(), GST_BUFFER_FLAG_DISCONT));
    EXPECT_FALSE(has_flag(sample.get(), GST_BUFFER_FLAG_DELTA_UNIT));
    EXPECT_EQ(pipeline.figure("main", "discontinuities"), 2U);
}

// --- states

TEST_F(Element, CyclesFromNullToPlayingAndBack) {
    Pipeline pipeline(camera() + "camera.main" + kSink + " camera.gray ! fakesink");
    for (int i = 0; i < cycles(10); ++i) {
        pipeline.play();
        ASSERT_NE(pipeline.pull("sink"), nullptr) << i;
        pipeline.stop();
    }
}

TEST_F(Element, PauseStopsRecordingAndPlayingGoesOn) {
    Pipeline pipeline(camera() + "camera.main" + kSink);
    pipeline.play();
    ASSERT_NE(pipeline.pull("sink"), nullptr);
    pipeline.set_state(GST_STATE_PAUSED);
    pipeline.play();
    SampleRef sample;
    do {
        sample = pipeline.pull("sink");
        ASSERT_NE(sample, nullptr);
    } while (!has_flag(sample.get(), GST_BUFFER_FLAG_DISCONT));
}

TEST_F(Element, ReadyKeepsTheCameraUp) {
    Pipeline pipeline(camera("brightness=3") + "camera.main" + kSink);
    pipeline.play();
    ASSERT_NE(pipeline.pull("sink"), nullptr);
    pipeline.set_state(GST_STATE_READY);
    gint brightness = 0;
    g_object_get(pipeline.camera(), "brightness", &brightness, nullptr);
    EXPECT_EQ(brightness, 3);
    pipeline.play();
    EXPECT_NE(pipeline.pull("sink"), nullptr);
    const ObjectRef<GstBus> bus(gst_element_get_bus(pipeline.get()));
    int messages = 0;
    while (MessageRef(gst_bus_pop_filtered(bus.get(), GST_MESSAGE_PROGRESS)) != nullptr) {
        ++messages;
    }
    EXPECT_EQ(messages, 2) << "searched for and ready, once";
}

/// Recording goes on for a while after the element has left PLAYING. ThreadSanitizer sees it when a
/// record is still on its way into a channel that is opened anew.
TEST(Router, GivesNoChannelARecordAfterPause) {
    initialise();
    const ObjectRef<GstClock> clock(gst_system_clock_obtain());
    const auto channel = std::make_shared<Channel>(camhost::Stream::kH264Main);
    std::vector<uint8_t> unit = fake::h264_units().front();
    RecordRouter router;
    router.connect(channel);
    channel->open(kSecond);
    router.run(clock.get(), 0);
    const auto queued = [&] { return channel->queue().figures().queued; };
    std::thread capture([&] {
        router.take(camhost::Stream::kH264Main,
                    {unit.data(), unit.size(), 0, CAM_STREAM_H264_MAIN});
    });
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    while (queued() == 0 && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    EXPECT_EQ(queued(), 1U);
    router.pause();
    channel->open(kSecond);
    EXPECT_FALSE(router.take(camhost::Stream::kH264Main,
                             {unit.data(), unit.size(), 0, CAM_STREAM_H264_MAIN}));
    EXPECT_EQ(queued(), 0U);
    capture.join();
}

TEST_F(Element, StopsAtOnceWhileTheCameraIsStillSearchedFor) {
    behave("never-reports");
    Pipeline pipeline(camera() + "camera.main ! fakesink");
    pipeline.play();
    const MessageRef message = pipeline.wait_for(GST_MESSAGE_PROGRESS);
    ASSERT_NE(message, nullptr);
    pipeline.stop();
}

}  // namespace
}  // namespace gstcam::test
