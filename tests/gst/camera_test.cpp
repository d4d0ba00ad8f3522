// The element with the camera plug-in that is shipped, on the virtual bus: what comes out of the
// pads is what the camera made.
#include <gmock/gmock.h>
#include <gst/video/video.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <algorithm>
#include <map>
#include <nlohmann/json.hpp>
#include <thread>
#include <utility>

#include "tests/gst/pipeline.h"
#include "tests/host/subprocess.h"
#include "tests/host/temporary_folder.h"
#include "tests/recording_check/counter_run.h"
#include "tests/virtcam/picture_decoder.h"
#include "virtcam/bus/control.h"
#include "virtcam/model/counter_code.h"
#include "virtcam/model/scene.h"

namespace gstcam::test {
namespace {

using nlohmann::json;
using recording_check::CounterRun;
using testing::ElementsAre;
using testing::HasSubstr;
using virtcam::model::Picture;

json running() {
    return {{"camera", {{"identity", "run-time"}, {"departure_ms", 1}, {"reenumerate_ms", 5}}},
            {"bus", {{"quiet", true}}}};
}
json without_firmware() {
    json configuration = running();
    configuration["camera"]["identity"] = "boot-code";
    return configuration;
}

std::string camera(const std::string& properties = "") {
    return std::string("aitcamsrc name=camera plugin=") + getenv("PLUGIN") + " " + properties + " ";
}

/// A branch of the pipeline that ends in an appsink of the pad's name.
std::string branch(const std::string& pad) {
    return "camera." + pad + " ! appsink sync=false async=false max-buffers=500 name=" + pad + " ";
}

std::string branches(const std::vector<std::string>& pads) {
    std::string text;
    for (const std::string& pad : pads) {
        text += branch(pad);
    }
    return text;
}

class Camera : public testing::Test {
  protected:
    void SetUp() override { virtcam::bus::reset(running()); }
};

/// What a sample shows. One decoder for each H.264 stream.
class Eye {
  public:
    std::optional<Picture> see(GstSample* sample) {
        using namespace virtcam::model::test;
        const auto bytes = bytes_of(sample);
        const GstStructure* format = format_of(sample);
        const std::string name = gst_structure_get_name(format);
        const int width = number_in(format, "width");
        const int height = number_in(format, "height");
        if (name == "video/x-h264") {
            return h264_.decode(bytes);
        }
        if (name == "image/jpeg") {
            return decode_jpeg(bytes);
        }
        const std::string layout = text_in(format, "format");
        if (layout == "GRAY8") {
            return unpack_gray(bytes, width, height);
        }
        return layout == "YUY2" ? unpack_yuy2(bytes, width, height)
                                : unpack_semi_planar(bytes, width, height, layout == "NV12");
    }

  private:
    virtcam::model::test::H264Decoder h264_;
};

std::optional<uint32_t> counter_of(const std::optional<Picture>& picture) {
    if (!picture) {
        return std::nullopt;
    }
    return virtcam::model::read_counter(picture->y.data(), picture->width, picture->height,
                                        picture->width);
}

/// Pulls so many pictures of a pad: their counters follow on each other, their sizes are those of
/// the caps, their times do not go back.
void expect_pictures(const Pipeline& pipeline, const std::string& pad, int count,
                     CounterRun::Order order = CounterRun::Order::kConsecutive) {
    Eye eye;
    CounterRun counters(order);
    int64_t last = 0;
    for (int i = 0; i < count; ++i) {
        const SampleRef sample = pipeline.pull(pad);
        ASSERT_NE(sample, nullptr) << pad << ' ' << i;
        const auto picture = eye.see(sample.get());
        ASSERT_TRUE(picture) << pad << ' ' << i;
        EXPECT_EQ(picture->width, number_in(format_of(sample.get()), "width")) << pad;
        EXPECT_EQ(picture->height, number_in(format_of(sample.get()), "height")) << pad;
        counters.add(counter_of(picture));
        EXPECT_GE(pts_of(sample.get()), last) << pad;
        last = pts_of(sample.get());
    }
    EXPECT_THAT(counters.faults(), ElementsAre()) << pad;
}

struct CombinationCase {
    const char* name;
    std::vector<std::string> pads;
};

class Combination : public Camera, public testing::WithParamInterface<CombinationCase> {};

TEST_P(Combination, EveryPadDelivers) {
    const auto& pads = GetParam().pads;
    Pipeline pipeline(camera(std::string("jpeg-interval=200 combination=") + GetParam().name) +
                      branches(pads) + branch("nv12") + branch("audio"));
    pipeline.play();
    for (const std::string& pad : pads) {
        expect_pictures(
            pipeline, pad, 4,
            pad == "jpeg" ? CounterRun::Order::kGrowing : CounterRun::Order::kConsecutive);
    }
    expect_pictures(pipeline, "nv12", 4);
    EXPECT_NE(pipeline.pull("audio"), nullptr);
}

INSTANTIATE_TEST_SUITE_P(All, Combination,
                         testing::Values(CombinationCase{"h264-yuyv", {"main", "yuy2"}},
                                         CombinationCase{"h264-gray", {"main", "gray"}},
                                         CombinationCase{"gray", {"gray"}},
                                         CombinationCase{"h264-h264-gray", {"main", "sub", "gray"}},
                                         CombinationCase{"h264-nv21", {"main", "nv21"}},
                                         CombinationCase{"h264-gray-si", {"main", "gray", "jpeg"}},
                                         CombinationCase{"h264-h264", {"main", "sub"}},
                                         CombinationCase{"h264-mjpeg", {"main", "jpeg"}}),
                         [](const auto& each) {
                             std::string name = each.param.name;
                             std::replace(name.begin(), name.end(), '-', '_');
                             return name;
                         });

/// The first pictures of a y4m file of luma alone.
std::vector<std::vector<uint8_t>> pictures_of(const std::string& file, size_t bytes, size_t count) {
    constexpr std::string_view kMark = "FRAME\n";
    std::vector<std::vector<uint8_t>> pictures;
    for (size_t at = file.find(kMark); at != std::string::npos && pictures.size() < count;
         at = file.find(kMark, at + kMark.size() + bytes)) {
        const auto begin = file.begin() + static_cast<std::ptrdiff_t>(at + kMark.size());
        pictures.emplace_back(begin, begin + static_cast<std::ptrdiff_t>(bytes));
    }
    return pictures;
}

/// A picture of luma with the lamp out: when that flashes is the sound's affair.
std::vector<uint8_t> without_lamp(std::vector<uint8_t> luma, int width) {
    using namespace virtcam::model;
    const auto scaled = [&](int sensor) { return sensor * width / kSensorWidth; };
    const int reach = scaled(kLampRadius) + 2;  // and what scaling blurs
    for (int y = scaled(kLampY) - reach; y < scaled(kLampY) + reach; ++y) {
        std::fill_n(luma.begin() + y * width + scaled(kLampX) - reach, 2 * reach, uint8_t{0});
    }
    return luma;
}

TEST_F(Camera, PicturesAreThoseThatCamhostRecords) {
    // Pictures as fast as they are taken: the n-th after power-on shows the same moment each time.
    json configuration = running();
    configuration["camera"]["paced"] = false;
    constexpr int kWidth = 320;
    constexpr size_t kBytes = size_t{kWidth} * 240;
    const camhost::test::TemporaryFolder folder;
    virtcam::bus::unplug();  // camhost has a camera of its own, in the same listing
    const auto recording = camhost::test::run_process(
        {getenv("CAMHOST"), "record", "--plugin", getenv("PLUGIN"), "--virtual-bus",
         getenv("VIRTUAL_BUS"), "--virtual=" + configuration.dump(), "--signal", "gray",
         "--streams", "gray", "--duration", "1s", "--output", folder.path() / "out"});
    ASSERT_EQ(recording.code, 0) << recording.out << recording.err;
    const auto recorded = pictures_of(folder.text_of("out/gray.y4m"), kBytes, 5);
    ASSERT_EQ(recorded.size(), 5U);

    virtcam::bus::reset(configuration);
    Pipeline pipeline(camera("combination=gray") + branch("gray"));
    pipeline.play();
    for (const auto& picture : recorded) {
        const SampleRef sample = pipeline.pull("gray");
        ASSERT_NE(sample, nullptr);
        EXPECT_EQ(without_lamp(bytes_of(sample.get()), kWidth), without_lamp(picture, kWidth));
    }
}

TEST_F(Camera, SoundIsContiguous) {
    Pipeline pipeline(camera() + branch("audio"));
    pipeline.play();
    int64_t expected = -1;
    for (int i = 0; i < 60; ++i) {
        const SampleRef sample = pipeline.pull("audio");
        ASSERT_NE(sample, nullptr);
        if (i > 20 && !has_flag(sample.get(), GST_BUFFER_FLAG_DISCONT)) {
            EXPECT_NEAR(static_cast<double>(pts_of(sample.get())), static_cast<double>(expected),
                        10.0 * GST_MSECOND)
                << i;
        }
        expected = pts_of(sample.get()) +
                   static_cast<int64_t>(GST_BUFFER_DURATION(gst_sample_get_buffer(sample.get())));
    }
}

/// How bright the camera's lamp is in a picture, 0 to 1.
double lamp_of(const Picture& picture) {
    using namespace virtcam::model;
    const auto scaled = [&](int sensor) { return sensor * picture.width / kSensorWidth; };
    const int reach = scaled(kLampRadius) / 2;
    int sum = 0;
    int pixels = 0;
    for (int y = scaled(kLampY) - reach; y < scaled(kLampY) + reach; ++y) {
        for (int x = scaled(kLampX) - reach; x < scaled(kLampX) + reach; ++x, ++pixels) {
            sum += picture.row_y(y)[x];
        }
    }
    return (static_cast<double>(sum) / pixels - 40) / 170;
}

/// The moment of each flash, in ns: the mean of the pictures' times, weighted by their light. Where
/// a part of the light is in a picture that the camera has skipped, it tells nothing.
class FlashWatch {
  public:
    /// Of the flash that has ended before this picture.
    std::optional<int64_t> see(GstSample* sample) {
        constexpr double kFaint = 0.06;
        const auto picture = eye_.see(sample);
        const double light = picture ? lamp_of(*picture) : 0;
        if (light > kFaint) {
            light_ += light;
            moment_ += light * static_cast<double>(pts_of(sample));
            return std::nullopt;
        }
        const double whole = std::exchange(light_, 0);
        const double moment = std::exchange(moment_, 0);
        return std::abs(whole - 1) < 0.15 ? std::optional(static_cast<int64_t>(moment / whole))
                                          : std::nullopt;
    }

  private:
    Eye eye_;
    double light_ = 0;
    double moment_ = 0;
};

/// When a click begins in a block of sound, in ns.
std::optional<int64_t> click_in(GstSample* sample) {
    constexpr int kClickLevel = 20000;  // the tone stays far below
    constexpr size_t kFrameBytes = 4;
    const int64_t rate = number_in(format_of(sample), "rate");
    const auto bytes = bytes_of(sample);
    for (size_t at = 0; at + kFrameBytes <= bytes.size(); at += kFrameBytes) {
        if (std::abs(static_cast<int16_t>(bytes[at] | bytes[at + 1] << 8)) > kClickLevel) {
            return pts_of(sample) + static_cast<int64_t>(at / kFrameBytes * GST_SECOND) / rate;
        }
    }
    return std::nullopt;
}

/// Follows the sound until a moment, in ns, and knows the last click that began before.
class ClickWatch {
  public:
    std::optional<int64_t> last_before(const Pipeline& pipeline, int64_t moment) {
        while (now_ < moment) {
            const SampleRef sample = pipeline.pull("audio");
            if (sample == nullptr) {
                return std::nullopt;
            }
            now_ = pts_of(sample.get());
            const auto click = click_in(sample.get());
            if (click && (!last_ || *click - *last_ > static_cast<int64_t>(GST_SECOND) / 2)) {
                last_ = click;  // else it goes on from the block before
            }
        }
        return last_;
    }

  private:
    int64_t now_ = 0;
    std::optional<int64_t> last_;
};

// A picture is stamped when it has come, and a busy machine is late with it. So one second in which
// it was not proves that the two have one base, and a base that is wrong has none.
TEST_F(Camera, FlashAndClickAreTogetherAtTheSinks) {
    constexpr int64_t kMost = 20 * static_cast<int64_t>(GST_MSECOND);
    constexpr int kPictures = 600;
    Pipeline pipeline(camera("size=320x240 mic-volume=100") + branches({"main", "audio"}));
    pipeline.play();
    FlashWatch flashes;
    ClickWatch clicks;
    std::vector<int64_t> apart;
    for (int i = 0; i < kPictures && (apart.empty() || std::abs(apart.back()) > kMost); ++i) {
        const SampleRef sample = pipeline.pull("main");
        ASSERT_NE(sample, nullptr) << i;
        if (const auto flash = flashes.see(sample.get())) {
            if (const auto click = clicks.last_before(pipeline, *flash + kMost)) {
                apart.push_back(*flash - *click);
            }
        }
    }
    ASSERT_THAT(apart, testing::Not(testing::IsEmpty()));
    EXPECT_LE(std::abs(apart.back()), kMost) << testing::PrintToString(apart);
}

TEST_F(Camera, SizeThatChangesShowsInTheCapsAndBeginsAnew) {
    Pipeline pipeline(camera() + branch("main"));
    pipeline.play();
    expect_pictures(pipeline, "main", 3);
    g_object_set(pipeline.camera(), "size", "320x240", nullptr);
    SampleRef sample;
    do {
        sample = pipeline.pull("main");
        ASSERT_NE(sample, nullptr);
    } while (number_in(format_of(sample.get()), "width") != 320);
    EXPECT_TRUE(has_flag(sample.get(), GST_BUFFER_FLAG_DISCONT));
    EXPECT_FALSE(has_flag(sample.get(), GST_BUFFER_FLAG_DELTA_UNIT));
    expect_pictures(pipeline, "main", 0);
    gchar* size = nullptr;
    g_object_get(pipeline.camera(), "size", &size, nullptr);
    EXPECT_STREQ(size, "320x240");
    g_free(size);
}

TEST_F(Camera, ForceKeyUnitIsAnsweredByAKeyFrameOfTheCamera) {
    Pipeline pipeline(camera() + branch("main"));
    pipeline.play();
    for (int i = 0; i < 5; ++i) {
        ASSERT_NE(pipeline.pull("main"), nullptr);
    }
    const auto sink = pipeline.element("main");
    ASSERT_TRUE(gst_element_send_event(
        sink.get(), gst_video_event_new_upstream_force_key_unit(GST_CLOCK_TIME_NONE, TRUE, 1)));
    int pictures = 0;
    for (SampleRef sample; pictures < 20; ++pictures) {
        sample = pipeline.pull("main");
        ASSERT_NE(sample, nullptr);
        if (!has_flag(sample.get(), GST_BUFFER_FLAG_DELTA_UNIT)) {
            break;
        }
    }
    EXPECT_LT(pictures, 15) << "the camera makes one of itself after 30";
}

TEST_F(Camera, PadThatNeedsAnotherCombinationGetsIt) {
    Pipeline pipeline(camera() + branch("main"));
    pipeline.play();
    expect_pictures(pipeline, "main", 3);
    GstElement* sink = gst_element_factory_make("appsink", "yuy2");
    g_object_set(sink, "sync", FALSE, "async", FALSE, nullptr);
    gst_bin_add(GST_BIN(pipeline.get()), sink);
    gst_element_sync_state_with_parent(sink);
    ASSERT_TRUE(gst_element_link_pads(pipeline.camera(), "yuy2", sink, "sink"));
    expect_pictures(pipeline, "yuy2", 3);
}

// --- coming and going

std::vector<GstProgressType> progress_of(const Pipeline& pipeline) {
    std::vector<GstProgressType> types;
    while (types.empty() || types.back() == GST_PROGRESS_TYPE_START ||
           types.back() == GST_PROGRESS_TYPE_CONTINUE) {
        const MessageRef message = pipeline.wait_for(GST_MESSAGE_PROGRESS);
        if (message == nullptr) {
            break;
        }
        GstProgressType type{};
        gst_message_parse_progress(message.get(), &type, nullptr, nullptr);
        types.push_back(type);
    }
    return types;
}

TEST_F(Camera, FirmwareIsLoadedAndTold) {
    virtcam::bus::reset(without_firmware());
    Pipeline pipeline(camera() + branch("main"));
    pipeline.play();
    EXPECT_THAT(progress_of(pipeline),
                ElementsAre(GST_PROGRESS_TYPE_START, GST_PROGRESS_TYPE_CONTINUE,
                            GST_PROGRESS_TYPE_COMPLETE));
    expect_pictures(pipeline, "main", 2);
}

TEST_F(Camera, FirmwareThatIsRefused) {
    json configuration = without_firmware();
    configuration["camera"]["returns"] = false;
    virtcam::bus::reset(configuration);
    Pipeline pipeline(camera() + branch("main"));
    pipeline.play();
    const auto error = pipeline.error();
    ASSERT_TRUE(error);
    EXPECT_TRUE(error->is(GST_RESOURCE_ERROR, GST_RESOURCE_ERROR_OPEN_WRITE)) << error->text;
    EXPECT_THAT(error->text, HasSubstr("did not come back"));
}

TEST_F(Camera, NoneOnTheBus) {
    virtcam::bus::unplug();
    Pipeline pipeline(camera() + branch("main"));
    pipeline.play();
    const auto error = pipeline.error();
    ASSERT_TRUE(error);
    EXPECT_TRUE(error->is(GST_RESOURCE_ERROR, GST_RESOURCE_ERROR_NOT_FOUND)) << error->text;
}

TEST_F(Camera, UnpluggedWhilePlayingIsToldAndTheNextOnePlays) {
    Pipeline pipeline(camera() + branch("main"));
    pipeline.play();
    expect_pictures(pipeline, "main", 3);
    virtcam::bus::unplug();
    const auto error = pipeline.error();
    ASSERT_TRUE(error);
    EXPECT_TRUE(error->is(GST_RESOURCE_ERROR, GST_RESOURCE_ERROR_READ)) << error->text;
    pipeline.stop();
    virtcam::bus::plug();
    pipeline.play();
    expect_pictures(pipeline, "main", 3);
}

TEST_F(Camera, UnpluggedWhileStarting) {
    Pipeline pipeline(camera() + branch("main"));
    pipeline.play();
    virtcam::bus::unplug();
    EXPECT_TRUE(pipeline.error());
}

TEST_F(Camera, UnpluggedWhileStopping) {
    Pipeline pipeline(camera() + branch("main") + branch("audio"));
    pipeline.play();
    expect_pictures(pipeline, "main", 2);
    std::thread hand([] { virtcam::bus::unplug(); });
    pipeline.stop();
    hand.join();
}

TEST_F(Camera, ComesAndGoesAmongTheDevices) {
    initialise();
    const ObjectRef<GstDeviceProvider> provider(
        gst_device_provider_factory_get_by_name("aitcamdeviceprovider"));
    ASSERT_NE(provider, nullptr);
    const ObjectRef<GstBus> bus(gst_device_provider_get_bus(provider.get()));
    ASSERT_TRUE(gst_device_provider_start(provider.get()));
    const auto next = [&](GstMessageType type) {
        return MessageRef(gst_bus_timed_pop_filtered(
            bus.get(), static_cast<GstClockTime>(kPatience.count()) * GST_SECOND, type));
    };
    const MessageRef added = next(GST_MESSAGE_DEVICE_ADDED);
    ASSERT_NE(added, nullptr);
    GstDevice* found = nullptr;
    gst_message_parse_device_added(added.get(), &found);
    const ObjectRef<GstDevice> device(found);
    const ObjectRef<GstElement> element(
        GST_ELEMENT(gst_object_ref_sink(gst_device_create_element(device.get(), "from-device"))));
    EXPECT_STREQ(G_OBJECT_TYPE_NAME(element.get()), "AitcamSrc");
    virtcam::bus::unplug();
    EXPECT_NE(next(GST_MESSAGE_DEVICE_REMOVED), nullptr);
    gst_device_provider_stop(provider.get());
}

TEST_F(Camera, CyclesFromNullToPlayingAndBack) {
    Pipeline pipeline(camera() + branch("main") + branch("audio"));
    for (int i = 0; i < cycles(3); ++i) {
        pipeline.play();
        ASSERT_NE(pipeline.pull("main"), nullptr) << i;
        pipeline.stop();
        virtcam::bus::power_cycle();  // the plug-in takes a listing that did not change for old
    }
}

}  // namespace
}  // namespace gstcam::test
