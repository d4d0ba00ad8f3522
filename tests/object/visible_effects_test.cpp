// What a host sets can be seen: from SetProperty through the plug-in and the camera to the pictures
// and samples that observers receive.
#include <algorithm>
#include <cmath>
#include <deque>
#include <map>
#include <memory>

#include "tests/object/CameraTest.h"
#include "tests/virtcam/picture_decoder.h"
#include "tests/virtcam/picture_measures.h"
#include "virtcam/model/scene.h"

namespace test {
namespace {

using virtcam::model::Picture;
using namespace virtcam::model::test;

typedef std::vector<uint8_t> Bytes;

/// Keeps copies of the first records of a stream.
class Collector : public ICameraObserver {
  public:
    Collector(CAM_STREAM_TYPE type, size_t most) : most_(most) { SetStreamType(type); }

    bool Update(const CCameraData* data) override {
        std::lock_guard lock(mutex_);
        // The record that tells the end of gray and NV12 streams is empty.
        if (data->m_size != 0 && records_.size() < most_) {
            const auto* bytes = static_cast<const uint8_t*>(data->m_pData);
            records_.emplace_back(bytes, bytes + data->m_size);
            changed_.notify_all();
        }
        return true;
    }
    bool WaitFor(size_t count, std::chrono::seconds limit = kLimit) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, limit, [&] { return records_.size() >= count; });
    }
    std::vector<Bytes> Records() {
        std::lock_guard lock(mutex_);
        return records_;
    }

  private:
    const size_t most_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<Bytes> records_;
};

/// A camera that makes pictures as fast as they are taken: each frame is one step of the scene, so
/// that the n-th picture after power-on always shows the same moment.
nlohmann::json UnpacedCamera() {
    return {
        {"camera",
         {{"identity", "run-time"}, {"departure_ms", 1}, {"reenumerate_ms", 5}, {"paced", false}}}};
}

struct Size {
    int width, height;
};

/// The picture without the lamp, wherever a mirror may show it: when that flashes is the sound's
/// affair, and which picture it meets is the machine's.
Picture Unlit(Picture picture) {
    using namespace virtcam::model;
    const auto scaled = [&](int sensor) { return sensor * picture.width / kSensorWidth; };
    const int reach = scaled(kLampRadius) + 2;  // and what scaling blurs
    const int right = scaled(kLampX - kSensorWidth / 2);
    const int below = scaled(kLampY - kSensorHeight / 2);
    const auto hide = [&](std::vector<uint8_t>* plane, int part) {
        const int width = picture.width / part;
        for (int i = 0; i < static_cast<int>(plane->size()); ++i) {
            const int x = std::abs(i % width * part - picture.width / 2);
            const int y = std::abs(i / width * part - picture.height / 2);
            if (std::abs(x - right) <= reach && std::abs(y - below) <= reach) {
                (*plane)[static_cast<size_t>(i)] = 0;
            }
        }
    };
    hide(&picture.y, 1);
    hide(&picture.u, 2);
    hide(&picture.v, 2);
    return picture;
}

/// As difference(), the lamp apart.
double UnlitDifference(const Picture& a, const Picture& b) {
    return difference(Unlit(a), Unlit(b));
}

/// What each observer of a recording saw first.
typedef std::map<CAM_STREAM_TYPE, Picture> Pictures;

class VisibleEffects : public CameraTest {
  protected:
    VisibleEffects() : CameraTest(UnpacedCamera()) {}

    static constexpr Size kVga = {640, 480};

    /// A camera that has just been switched on, its streams selected.
    void PowerOn(CAM_SIGNAL_TYPE signal) {
        virtcam::bus::power_cycle();
        Ready();
        EXPECT_FALSE(Set(CAM_PROPERTY_SIGNAL_TYPE, signal)) << "kept for the start";
    }

    /// Powers a camera on, lets `prepare` set what it wants, records until each of `streams` has
    /// brought a picture and switches off. `local` is the size of the local pictures.
    template <typename Prepare>
    Pictures Record(CAM_SIGNAL_TYPE signal, const std::vector<CAM_STREAM_TYPE>& streams,
                    Prepare prepare, Size local = kVga) {
        PowerOn(signal);
        EXPECT_TRUE(Set(CAM_PROPERTY_BITRATE, 16000000));  // keeps coding errors small
        prepare();
        std::vector<std::unique_ptr<Collector>> collectors;
        for (const CAM_STREAM_TYPE stream : streams) {
            collectors.push_back(std::make_unique<Collector>(stream, 1));
            camera_->RegisterObserver(collectors.back().get());
        }
        EXPECT_TRUE(camera_->StartRecording());
        Pictures pictures;
        for (const auto& collector : collectors) {
            EXPECT_TRUE(collector->WaitFor(1))
                << "no picture of stream type " << collector->GetStreamType() << log_listing();
        }
        EXPECT_TRUE(camera_->StopRecording());
        for (const auto& collector : collectors) {
            camera_->RemoveObserver(collector.get());
            const auto stream = static_cast<CAM_STREAM_TYPE>(collector->GetStreamType());
            for (const Bytes& record : collector->Records()) {
                pictures[stream] = Decode(stream, record, local);
                EXPECT_EQ(counter_of(pictures[stream]), 1U) << "another moment of the scene";
            }
        }
        Destroy();
        return pictures;
    }

    /// The three kinds of picture that have settings of their own: main, local and gray.
    template <typename Prepare>
    Pictures RecordThree(Prepare prepare) {
        return Record(CAM_SIGNAL_H264_GRAY, {kMain, kLocal, kGray}, [&] {
            EXPECT_TRUE(Set(CAM_PROPERTY_NV12_MODE_CONTROL, 1));
            prepare();
        });
    }
    Pictures RecordThreeWith(CAM_PROPERTY property, int value) {
        return RecordThree([&] { EXPECT_TRUE(Set(property, value)); });
    }
    Pictures RecordUntouched() {
        return RecordThree([] {});
    }
    Picture RecordLocalWith(CAM_PROPERTY property, int value) {
        return RecordThreeWith(property, value)[kLocal];
    }

    static Picture Decode(CAM_STREAM_TYPE stream, const Bytes& record, Size local) {
        const auto pixels = static_cast<size_t>(local.width) * static_cast<size_t>(local.height);
        switch (stream) {
            case CAM_STREAM_YUYV:
                EXPECT_EQ(record.size(), pixels * 2);
                return record.size() == pixels * 2 ? unpack_yuy2(record, local.width, local.height)
                                                   : Picture(2, 2);
            case CAM_STREAM_NV12:
            case CAM_STREAM_NV21:
                EXPECT_EQ(record.size(), pixels * 3 / 2);
                return record.size() == pixels * 3 / 2
                           ? unpack_semi_planar(record, local.width, local.height,
                                                stream == CAM_STREAM_NV12)
                           : Picture(2, 2);
            case CAM_STREAM_GRAY:
                EXPECT_EQ(record.size(), 320U * 240U);
                return record.size() == 320U * 240U ? unpack_gray(record, 320, 240) : Picture(2, 2);
            case CAM_STREAM_H264_MAIN:
                return H264Decoder().decode(record).value_or(Picture(2, 2));
            default:
                return decode_jpeg(record).value_or(Picture(2, 2));
        }
    }

    static constexpr CAM_STREAM_TYPE kMain = CAM_STREAM_H264_MAIN;
    static constexpr CAM_STREAM_TYPE kLocal = CAM_STREAM_NV12;
    static constexpr CAM_STREAM_TYPE kGray = CAM_STREAM_GRAY;
};

// Two decoded H.264 pictures of the same view differ by coding errors of a few levels, two raw ones
// not at all; two different views of the textured scene differ by more than ten on average.
constexpr double kSameView = 6;
constexpr double kOtherView = 10;
/// An enlarged view shows other samples of the same places.
constexpr double kEnlarged = 12;

// --- orientation ---------------------------------------------------------------------------------

TEST_F(VisibleEffects, MirrorTurnsTheMainPicture) {
    const Pictures plain = RecordUntouched();
    const Pictures set = RecordThreeWith(CAM_PROPERTY_MIRROR, 1);
    EXPECT_GT(difference(set.at(kMain), plain.at(kMain)), kOtherView);
    EXPECT_LT(difference(set.at(kMain), mirrored(plain.at(kMain))), kSameView);
    EXPECT_EQ(UnlitDifference(set.at(kLocal), plain.at(kLocal)), 0);
    EXPECT_EQ(UnlitDifference(set.at(kGray), plain.at(kGray)), 0);
}

TEST_F(VisibleEffects, FlipTurnsTheMainPictureUpsideDown) {
    const Pictures plain = RecordUntouched();
    const Pictures set = RecordThreeWith(CAM_PROPERTY_FLIP, 1);
    EXPECT_GT(middle_difference(set.at(kMain), plain.at(kMain)), kOtherView);
    EXPECT_LT(middle_difference(set.at(kMain), flipped(plain.at(kMain))), kSameView);
    EXPECT_EQ(UnlitDifference(set.at(kLocal), plain.at(kLocal)), 0);
    EXPECT_EQ(UnlitDifference(set.at(kGray), plain.at(kGray)), 0);
}

TEST_F(VisibleEffects, MirrorAndFlipTogetherTurnTheJpegPicture) {
    const auto record = [this](int on) {
        return Record(CAM_SIGNAL_H264_MJPEG, {CAM_STREAM_JPEG}, [&] {
            EXPECT_TRUE(Set(CAM_PROPERTY_MIRROR, on));
            EXPECT_TRUE(Set(CAM_PROPERTY_FLIP, on));
            EXPECT_TRUE(Set(CAM_PROPERTY_TRIGGER_JPEG, 1));  // JPEG is delivered on demand only
        })[CAM_STREAM_JPEG];
    };
    const Picture plain = record(0);
    const Picture set = record(1);
    EXPECT_GT(middle_difference(set, plain), kOtherView);
    EXPECT_LT(middle_difference(set, flipped(mirrored(plain))), kSameView);
}

TEST_F(VisibleEffects, LocalMirrorTurnsTheLocalPicture) {
    const Pictures plain = RecordUntouched();
    const Pictures set = RecordThreeWith(CAM_PROPERTY_LOCAL_MIRROR, 1);
    EXPECT_GT(difference(set.at(kLocal), plain.at(kLocal)), kOtherView);
    EXPECT_EQ(UnlitDifference(set.at(kLocal), mirrored(plain.at(kLocal))), 0);
    EXPECT_EQ(UnlitDifference(set.at(kMain), plain.at(kMain)), 0);
    EXPECT_EQ(UnlitDifference(set.at(kGray), plain.at(kGray)), 0);
}

TEST_F(VisibleEffects, LocalMirrorTurnsEachKindOfLocalPicture) {
    const std::pair<CAM_SIGNAL_TYPE, CAM_STREAM_TYPE> cases[] = {
        {CAM_SIGNAL_H264_YUYV, CAM_STREAM_YUYV}, {CAM_SIGNAL_H264_NV21, CAM_STREAM_NV21}};
    for (const auto& [signal, stream] : cases) {
        const Pictures plain = Record(signal, {stream}, [] {});
        const Pictures set =
            Record(signal, {stream}, [&] { EXPECT_TRUE(Set(CAM_PROPERTY_LOCAL_MIRROR, 1)); });
        EXPECT_GT(difference(set.at(stream), plain.at(stream)), kOtherView) << signal;
        EXPECT_EQ(UnlitDifference(set.at(stream), mirrored(plain.at(stream))), 0) << signal;
    }
}

TEST_F(VisibleEffects, GrayMirrorTurnsTheGrayPicture) {
    const Pictures plain = RecordUntouched();
    const Pictures set = RecordThreeWith(CAM_PROPERTY_MIRROR_GRAY, 1);
    EXPECT_GT(difference(set.at(kGray), plain.at(kGray)), kOtherView);
    EXPECT_EQ(UnlitDifference(set.at(kGray), mirrored(plain.at(kGray))), 0);
    EXPECT_EQ(UnlitDifference(set.at(kMain), plain.at(kMain)), 0);
    EXPECT_EQ(UnlitDifference(set.at(kLocal), plain.at(kLocal)), 0);
}

TEST_F(VisibleEffects, SwitchingAMirrorOffTurnsThePictureBack) {
    const Pictures plain = RecordUntouched();
    const Pictures set = RecordThree([this] {
        for (const CAM_PROPERTY property : {CAM_PROPERTY_MIRROR, CAM_PROPERTY_FLIP,
                                            CAM_PROPERTY_LOCAL_MIRROR, CAM_PROPERTY_MIRROR_GRAY}) {
            EXPECT_TRUE(Set(property, 1));
        }
        EXPECT_TRUE(Set(CAM_PROPERTY_FLIP, 0));
        EXPECT_TRUE(Set(CAM_PROPERTY_LOCAL_MIRROR, 0));
    });
    EXPECT_LT(difference(set.at(kMain), mirrored(plain.at(kMain))), kSameView);
    EXPECT_EQ(UnlitDifference(set.at(kLocal), plain.at(kLocal)), 0);
    EXPECT_EQ(UnlitDifference(set.at(kGray), mirrored(plain.at(kGray))), 0);
}

// --- view ----------------------------------------------------------------------------------------

TEST_F(VisibleEffects, PanMovesTheViewAlongTheRows) {
    const Picture plain = RecordUntouched()[kLocal];
    // Ten degrees are an eighth of the view.
    EXPECT_EQ(best_shift(plain, RecordLocalWith(CAM_PROPERTY_PAN, 10), 120), 80);
    EXPECT_EQ(best_shift(plain, RecordLocalWith(CAM_PROPERTY_PAN, -5), 120), -40);
}

TEST_F(VisibleEffects, TiltMovesTheViewAlongTheColumns) {
    const Picture plain = RecordUntouched()[kLocal];
    EXPECT_EQ(best_vertical_shift(plain, RecordLocalWith(CAM_PROPERTY_TILT, 10), 80), -60);
    EXPECT_EQ(best_vertical_shift(plain, RecordLocalWith(CAM_PROPERTY_TILT, -5), 80), 30);
}

TEST_F(VisibleEffects, ZoomEnlargesTheMiddle) {
    const Pictures plain = RecordUntouched();
    const Pictures set = RecordThreeWith(CAM_PROPERTY_ZOOM, 5);
    const Pictures other = RecordThreeWith(CAM_PROPERTY_ZOOM, 10);
    for (const CAM_STREAM_TYPE stream : {kMain, kLocal}) {
        EXPECT_GT(difference(set.at(stream), plain.at(stream)), kOtherView);
        EXPECT_LT(difference_from_window(set.at(stream), plain.at(stream), {160, 120, 320, 240}),
                  kEnlarged);
    }
    EXPECT_GT(difference(other.at(kLocal), set.at(kLocal)), kOtherView);
}

TEST_F(VisibleEffects, CropShowsAWindowOfMainAndLocalPicture) {
    const Pictures plain = RecordUntouched();
    const Pictures set =
        RecordThree([this] { EXPECT_TRUE(SetPair(CAM_PROPERTY_CROP_VGA, 200, 360)); });
    for (const CAM_STREAM_TYPE stream : {kMain, kLocal}) {
        EXPECT_GT(difference(set.at(stream), plain.at(stream)), kOtherView);
        EXPECT_LT(difference_from_window(set.at(stream), plain.at(stream), {100, 180, 320, 240}),
                  kEnlarged);
    }
    EXPECT_EQ(UnlitDifference(set.at(kGray), plain.at(kGray)), 0);
    const Pictures reset = RecordThree([this] {
        EXPECT_TRUE(SetPair(CAM_PROPERTY_CROP_VGA, 200, 360));
        EXPECT_TRUE(Set(CAM_PROPERTY_CROP_VGA, 0));
    });
    EXPECT_EQ(UnlitDifference(reset.at(kLocal), plain.at(kLocal)), 0);
}

TEST_F(VisibleEffects, GrayCropShowsAWindowOfTheGrayPicture) {
    const Pictures plain = RecordUntouched();
    const Pictures set =
        RecordThree([this] { EXPECT_TRUE(SetPair(CAM_PROPERTY_CROP_GRAY, 200, 360)); });
    EXPECT_GT(difference(set.at(kGray), plain.at(kGray)), kOtherView);
    EXPECT_LT(difference_from_window(set.at(kGray), plain.at(kGray), {50, 90, 160, 120}),
              kEnlarged);
    EXPECT_EQ(UnlitDifference(set.at(kMain), plain.at(kMain)), 0);
    EXPECT_EQ(UnlitDifference(set.at(kLocal), plain.at(kLocal)), 0);
    const Pictures reset = RecordThree([this] {
        EXPECT_TRUE(SetPair(CAM_PROPERTY_CROP_GRAY, 200, 360));
        EXPECT_TRUE(Set(CAM_PROPERTY_CROP_GRAY, 0));
    });
    EXPECT_EQ(UnlitDifference(reset.at(kGray), plain.at(kGray)), 0);
}

// --- size ----------------------------------------------------------------------------------------

TEST_F(VisibleEffects, Nv12SizeWidensTheNv12Picture) {
    const auto record = [this](int wide, Size size) {
        return Record(
            CAM_SIGNAL_H264_GRAY, {CAM_STREAM_NV12},
            [&] {
                EXPECT_TRUE(Set(CAM_PROPERTY_NV12_MODE_CONTROL, 1));
                EXPECT_TRUE(Set(CAM_PROPERTY_CHANGE_NV12_RESOLUTION, wide));
            },
            size)[CAM_STREAM_NV12];
    };
    const Picture plain = record(0, kVga);
    const Picture set = record(1, {864, 486});
    EXPECT_LT(difference_from_window(set, plain, {0, 60, 640, 360}), kEnlarged);
}

TEST_F(VisibleEffects, LocalViewSizeCutsTheLocalPicture) {
    const auto record = [this](Size size) {
        return Record(
            CAM_SIGNAL_H264_YUYV, {CAM_STREAM_YUYV},
            [&] { EXPECT_TRUE(SetPair(CAM_PROPERTY_LOCAL_RESOLUTION, size.width, size.height)); },
            size)[CAM_STREAM_YUYV];
    };
    const Picture plain = record(kVga);
    EXPECT_EQ(difference_from_window(Unlit(record({640, 360})), Unlit(plain), {0, 60, 640, 360}),
              0);
    EXPECT_LT(difference_from_window(record({800, 450}), plain, {0, 60, 640, 360}), kEnlarged);
}

// --- picture controls ----------------------------------------------------------------------------

TEST_F(VisibleEffects, BrightnessMovesTheMeanLuma) {
    const Picture plain = RecordUntouched()[kLocal];
    const Picture brighter = RecordLocalWith(CAM_PROPERTY_BRIGHTNESS, 30);
    const Picture darker = RecordLocalWith(CAM_PROPERTY_BRIGHTNESS, -30);
    // A little less than 30: the counter's band is drawn afterwards.
    EXPECT_NEAR(mean(brighter.y) - mean(plain.y), 28, 4);
    EXPECT_NEAR(mean(darker.y) - mean(plain.y), -28, 4);
    EXPECT_NEAR(deviation(brighter.y), deviation(plain.y), 2);
}

TEST_F(VisibleEffects, ContrastSpreadsTheLuma) {
    const Picture plain = RecordUntouched()[kLocal];
    EXPECT_LT(deviation(RecordLocalWith(CAM_PROPERTY_CONTRAST, 64).y), deviation(plain.y) * 0.6);
    EXPECT_GT(deviation(RecordLocalWith(CAM_PROPERTY_CONTRAST, 192).y), deviation(plain.y) * 1.2);
}

TEST_F(VisibleEffects, SaturationSpreadsTheColours) {
    const Picture plain = RecordUntouched()[kLocal];
    const Picture none = RecordLocalWith(CAM_PROPERTY_SATURATION, 0);
    const Picture much = RecordLocalWith(CAM_PROPERTY_SATURATION, 250);
    EXPECT_LT(deviation(none.u), 1);
    EXPECT_LT(deviation(none.v), 1);
    EXPECT_GT(deviation(much.u), deviation(plain.u) * 1.4);
    EXPECT_GT(deviation(much.v), deviation(plain.v) * 1.4);
    EXPECT_EQ(UnlitDifference(none, plain), 0);
}

TEST_F(VisibleEffects, HueTurnsTheColours) {
    const Picture plain = RecordUntouched()[kLocal];
    const Picture half = RecordLocalWith(CAM_PROPERTY_HUE, 18000);  // 1/100 degree
    const Picture quarter = RecordLocalWith(CAM_PROPERTY_HUE, 9000);
    EXPECT_LT(distance_from_opposite(half.u, plain.u), 2);
    EXPECT_LT(distance_from_opposite(half.v, plain.v), 2);
    EXPECT_NEAR(mean(quarter.v), mean(plain.u), 2) << "blue has become red";
    EXPECT_GT(distance_from_opposite(quarter.u, plain.u), 5);
    EXPECT_EQ(UnlitDifference(half, plain), 0);
}

TEST_F(VisibleEffects, SharpnessGammaAndBacklightChangeTheLuma) {
    const Picture plain = RecordUntouched()[kLocal];
    const Picture sharp = RecordLocalWith(CAM_PROPERTY_SHARPNESS, 15);
    EXPECT_GT(difference(sharp, plain), 2);
    EXPECT_NEAR(mean(sharp.y), mean(plain.y), 2) << "edges only";
    EXPECT_GT(mean(RecordLocalWith(CAM_PROPERTY_GAMMA, 250).y), mean(plain.y) + 15);
    EXPECT_GT(mean(RecordLocalWith(CAM_PROPERTY_BACKLIGHT_CONTROL, 4).y), mean(plain.y) + 15);
}

TEST_F(VisibleEffects, WhiteBalanceWarmsWhenItIsSetByHand) {
    const Picture plain = RecordUntouched()[kLocal];
    const auto record = [this](int automatic) {
        return RecordThree([&] {
            EXPECT_TRUE(Set(CAM_PROPERTY_MANUAL_AWB_CONTROL, automatic));
            EXPECT_EQ(Set(CAM_PROPERTY_AWB_TEMPERATURE, 6500), automatic == 0)
                << "the camera's own while automatic is on";
        })[kLocal];
    };
    const Picture warm = record(0);
    EXPECT_GT(mean(warm.v), mean(plain.v) + 15);
    EXPECT_LT(mean(warm.u), mean(plain.u) - 15);
    EXPECT_EQ(Unlit(record(1)).v, Unlit(plain).v) << "automatic ignores the temperature";
}

TEST_F(VisibleEffects, ImageAndColourEffectsAct) {
    const Picture plain = RecordUntouched()[kLocal];
    const Picture negative = RecordLocalWith(CAM_PROPERTY_IMAGE_EFFECT, 1);
    EXPECT_NEAR(negative.row_y(400)[300], 255 - plain.row_y(400)[300], 1);
    const Picture gray = RecordLocalWith(CAM_PROPERTY_COLOR_EFFECT, 1);
    EXPECT_LT(deviation(gray.v), 1);
    EXPECT_EQ(UnlitDifference(gray, plain), 0);
}

// --- bit rate ------------------------------------------------------------------------------------

constexpr size_t kFramesPerSecond = 30;
/// Of hundreds of pictures, with sanitizers on a busy machine.
constexpr auto kEncodingLimit = 4 * kLimit;

/// What the camera has been told for its main stream, in kbit/s.
int ReceivedKbps() {
    return virtcam::bus::status_json()["camera"]["settings"]["main_rate"]["kbps"].get<int>();
}

double Kbits(const std::vector<Bytes>& pictures, size_t from, size_t count) {
    double bits = 0;
    for (size_t i = from; i < from + count; ++i) {
        bits += 8.0 * static_cast<double>(pictures[i].size());
    }
    return bits / 1000;
}

class VisibleBitRate : public VisibleEffects, public testing::WithParamInterface<int> {};

TEST_P(VisibleBitRate, SecondsTwoToSevenKeepWhatTheCameraReceived) {
    constexpr size_t kSeconds = 7;
    Collector collector(CAM_STREAM_H264_MAIN, kSeconds * kFramesPerSecond);
    PowerOn(CAM_SIGNAL_H264_GRAY);
    EXPECT_TRUE(Set(CAM_PROPERTY_BITRATE, GetParam()));
    EXPECT_EQ(ReceivedKbps(), GetParam() / 1024);
    camera_->RegisterObserver(&collector);
    ASSERT_TRUE(camera_->StartRecording());
    EXPECT_TRUE(collector.WaitFor(kSeconds * kFramesPerSecond, kEncodingLimit));
    EXPECT_TRUE(camera_->StopRecording());
    camera_->RemoveObserver(&collector);
    EXPECT_EQ(ReceivedKbps(), GetParam() / 1000) << "the start's own unit";

    const std::vector<Bytes> pictures = collector.Records();
    ASSERT_EQ(pictures.size(), kSeconds * kFramesPerSecond);
    for (size_t second = 1; second < kSeconds; ++second) {
        EXPECT_NEAR(Kbits(pictures, second * kFramesPerSecond, kFramesPerSecond), ReceivedKbps(),
                    ReceivedKbps() * 0.15)
            << "second " << second + 1;
    }
    // None is missing: the camera makes 30 in each second of its clock.
    H264Decoder decoder;
    for (uint32_t i = 0; i < pictures.size(); ++i) {
        const auto picture = decoder.decode(pictures[i]);
        ASSERT_TRUE(picture.has_value()) << "picture " << i + 1;
        ASSERT_EQ(counter_of(*picture), i + 1);
    }
}

INSTANTIATE_TEST_SUITE_P(Vga, VisibleBitRate, testing::Values(500000, 1000000, 2000000, 4000000));

TEST_F(VisibleEffects, BitRateChangesWhileThePicturesCome) {
    constexpr size_t kBefore = 60, kSettling = 60, kMeasured = 60;
    Collector collector(CAM_STREAM_H264_MAIN, 1000);
    PowerOn(CAM_SIGNAL_H264_GRAY);
    EXPECT_TRUE(Set(CAM_PROPERTY_BITRATE, 4000000));
    camera_->RegisterObserver(&collector);
    ASSERT_TRUE(camera_->StartRecording());
    EXPECT_TRUE(collector.WaitFor(kBefore, kEncodingLimit));
    EXPECT_TRUE(Set(CAM_PROPERTY_BITRATE, 1000000));
    EXPECT_EQ(ReceivedKbps(), 976);
    const size_t from = collector.Records().size() + kSettling;
    EXPECT_TRUE(collector.WaitFor(from + kMeasured, kEncodingLimit));
    EXPECT_TRUE(camera_->StopRecording());
    camera_->RemoveObserver(&collector);
    const std::vector<Bytes> pictures = collector.Records();
    ASSERT_GE(pictures.size(), from + kMeasured);
    EXPECT_NEAR(Kbits(pictures, kFramesPerSecond, kFramesPerSecond), 4000, 4000 * 0.15);
    EXPECT_NEAR(Kbits(pictures, from, kMeasured) * kFramesPerSecond / kMeasured, 976, 976 * 0.15);
}

// --- sound ---------------------------------------------------------------------------------------

/// Follows the level of the sound.
class LevelMeter : public ICameraObserver {
  public:
    LevelMeter() { SetStreamType(CAM_STREAM_PCM); }

    bool Update(const CCameraData* data) override {
        const auto* samples = static_cast<const int16_t*>(data->m_pData);
        int peak = 0;
        for (size_t i = 0; i < data->m_size / sizeof *samples; ++i) {
            peak = std::max(peak, std::abs(int{samples[i]}));
        }
        std::lock_guard lock(mutex_);
        peaks_.push_back(peak);
        if (peaks_.size() > kBlocks) {
            peaks_.pop_front();
        }
        changed_.notify_all();
        return true;
    }
    /// Waits until the level is within 3 % of `peak`.
    bool WaitForLevel(double peak) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, kLimit, [&] {
            return peaks_.size() == kBlocks && std::abs(Level() - peak) <= peak * 0.03;
        });
    }

  private:
    // Of 15 ms each. The click of each second is in one or two of them.
    static constexpr size_t kBlocks = 9;

    /// The median peak of the last blocks, which clicks do not change.
    double Level() const {
        std::vector<int> sorted(peaks_.begin(), peaks_.end());
        std::sort(sorted.begin(), sorted.end());
        return sorted[sorted.size() / 2];
    }

    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<int> peaks_;
};

/// Peak of the camera's tone at a volume.
double PeakAt(double decibels) {
    constexpr double kFullScale = 12000;
    return kFullScale * std::pow(10, decibels / 20);
}

TEST_F(VisibleEffects, MicrophoneVolumeChangesTheLevel) {
    LevelMeter meter;
    Ready();
    camera_->RegisterObserver(&meter);
    EXPECT_TRUE(camera_->StartRecording());
    EXPECT_TRUE(meter.WaitForLevel(PeakAt(-11.2))) << "30 % unless something else is set";
    for (const auto& [percent, decibels] :
         std::map<int, double>{{5, -15.2}, {60, -6.4}, {100, 0}}) {
        EXPECT_TRUE(Set(CAM_PROPERTY_MICVOLUME, percent));
        EXPECT_TRUE(meter.WaitForLevel(PeakAt(decibels))) << percent << " %";
    }
    EXPECT_TRUE(camera_->StopRecording());
    EXPECT_TRUE(Set(CAM_PROPERTY_MICVOLUME, 5));
    EXPECT_TRUE(camera_->StartRecording());
    EXPECT_TRUE(meter.WaitForLevel(PeakAt(-15.2))) << "set between two recordings";
    EXPECT_TRUE(camera_->StopRecording());
    camera_->RemoveObserver(&meter);
}

// --- what the camera tells about itself ----------------------------------------------------------

nlohmann::json CameraStatus() {
    return virtcam::bus::status_json()["camera"];
}

TEST_F(VisibleEffects, LightShowsInTheStatusWhileRecording) {
    Ready();
    EXPECT_EQ(CameraStatus()["light"], false);
    EXPECT_TRUE(camera_->StartRecording());
    EXPECT_EQ(CameraStatus()["light"], true);
    EXPECT_TRUE(camera_->StopRecording());
    EXPECT_EQ(CameraStatus()["light"], false);
}

TEST_F(VisibleEffects, AntiFlickerShowsInTheStatus) {
    Ready();
    EXPECT_EQ(CameraStatus()["anti_flicker"], 0);
    EXPECT_TRUE(Set(CAM_PROPERTY_AUTO_HZ, 1));
    EXPECT_EQ(CameraStatus()["anti_flicker"], 2) << "60 Hz";
    EXPECT_TRUE(Set(CAM_PROPERTY_AUTO_HZ, 2));
    EXPECT_EQ(CameraStatus()["anti_flicker"], 1) << "50 Hz";
}

TEST_F(VisibleEffects, AntiFlickerOfTheTelevisionIsSetByTheFirstStart) {
    WriteFile("/dtv/cm_frequency", "2\n");
    Ready();
    EXPECT_EQ(CameraStatus()["anti_flicker"], 0);
    EXPECT_TRUE(camera_->StartRecording());
    EXPECT_EQ(CameraStatus()["anti_flicker"], 1) << "50 Hz";
    EXPECT_TRUE(camera_->StopRecording());
}

TEST_F(VisibleEffects, SelfTestShowsInTheStatus) {
    Ready();
    EXPECT_EQ(CameraStatus()["settings"]["self_tests"], 0);
    EXPECT_TRUE(Get(CAM_PROPERTY_VIDEO_TEST));
    EXPECT_EQ(last_.value, 1);
    EXPECT_EQ(CameraStatus()["settings"]["self_tests"], 1);
}

TEST_F(VisibleEffects, SelfTestThatFailsIsTold) {
    nlohmann::json broken = UnpacedCamera();
    broken["camera"]["self_test_result"] = 3;
    virtcam::bus::reset(broken);
    Ready();
    EXPECT_TRUE(Get(CAM_PROPERTY_VIDEO_TEST));
    EXPECT_EQ(last_.value, 0);
    EXPECT_EQ(CameraStatus()["self_test"], 3);
    EXPECT_EQ(CameraStatus()["settings"]["self_tests"], 1);
}

}  // namespace
}  // namespace test
