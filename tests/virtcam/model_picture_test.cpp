// The pictures: counters that read back after every codec, and settings that can be seen.
#include <gtest/gtest.h>

#include <unistd.h>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <random>

#include "model_fixture.h"
#include "picture_decoder.h"
#include "picture_measures.h"
#include "virtcam/model/counter_code.h"
#include "virtcam/model/jpeg_encoder.h"
#include "virtcam/model/scene.h"
#include "virtcam/model/y4m_source.h"

namespace virtcam::model::test {
namespace {

Picture decode_raw(const SubStream& stream) {
    switch (static_cast<StreamId>(stream.id)) {
        case StreamId::kYuy2:
            return unpack_yuy2(stream.data, stream.width, stream.height);
        case StreamId::kNv12:
            return unpack_semi_planar(stream.data, stream.width, stream.height, true);
        case StreamId::kNv21:
            return unpack_semi_planar(stream.data, stream.width, stream.height, false);
        default:
            return unpack_gray(stream.data, stream.width, stream.height);
    }
}

bool is_h264(uint16_t id) {
    return id == 0x2B || id == 0x35;
}

TEST(Counter, ReadsBackFromEverySubStreamAndEqualsItsSequenceNumber) {
    for (const uint8_t code : {0, 3, 4, 8}) {
        Host host(running_camera());
        ASSERT_TRUE(host.select(code) && host.mmp({0x04, 1}) && host.mmp({0x2D, 1}));
        ASSERT_TRUE(host.aux({0x28, 11}) && host.start());
        std::map<uint16_t, H264Decoder> decoders;
        for (int i = 0; i < 20; ++i) {
            for (const SubStream& stream : host.next_sub_streams()) {
                std::optional<Picture> picture;
                if (is_h264(stream.id)) {
                    picture = decoders[stream.id].decode(stream.data);
                } else if (stream.id == 0x2C) {
                    picture = decode_jpeg(stream.data);
                } else {
                    picture = decode_raw(stream);
                }
                ASSERT_TRUE(picture.has_value()) << stream.id;
                EXPECT_EQ(picture->width, stream.width);
                EXPECT_EQ(picture->height, stream.height);
                EXPECT_EQ(counter_of(*picture), stream.sequence) << stream.id;
            }
        }
    }
}

class SmallAndSlow : public testing::TestWithParam<int> {};

TEST_P(SmallAndSlow, CounterSurvivesTheLowestRates) {
    Host host(running_camera());
    ASSERT_TRUE(host.isp({0x08, 0xFF, 64, 0}));
    ASSERT_TRUE(host.select(7) && host.start(4, static_cast<uint8_t>(GetParam())));
    H264Decoder decoder;
    for (uint32_t i = 1; i <= 30; ++i) {
        const auto picture = decoder.decode(host.next_of(StreamId::kMainH264).data);
        ASSERT_TRUE(picture.has_value());
        EXPECT_EQ(counter_of(*picture), i);
    }
}

INSTANTIATE_TEST_SUITE_P(Frames, SmallAndSlow, testing::Range(1, 6));

TEST(Counter, EveryBitPatternIsReadAndDamageIsNoticed) {
    constexpr size_t kSamples = 19200;  // 160 × 120
    std::vector<uint8_t> luma(kSamples, 90);
    for (const uint32_t counter : {0U, 1U, 0x80000000U, 0xFFFFFFFFU, 0x12345678U}) {
        draw_counter(luma.data(), 160, 120, 160, counter);
        EXPECT_EQ(read_counter(luma.data(), 160, 120, 160), counter);
        for (int block = 2; block < 18; ++block) {
            auto damaged = luma;
            for (int y = 0; y < 8; ++y) {
                for (int x = block * 8; x < block * 8 + 8; ++x) {
                    uint8_t& sample = damaged[static_cast<size_t>(y) * 160 + x];
                    sample = sample > 128 ? 32 : 220;
                }
            }
            EXPECT_FALSE(read_counter(damaged.data(), 160, 120, 160).has_value());
        }
    }
    const std::vector<uint8_t> grey(kSamples, 128);
    EXPECT_FALSE(read_counter(grey.data(), 160, 120, 160).has_value());
    EXPECT_FALSE(read_counter(grey.data(), 16, 16, 16).has_value());
}

TEST(Jpeg, UsesTheFullRangeOfItsLevels) {
    Host host(running_camera());
    ASSERT_TRUE(host.isp({0x08, 0xFF, 0x20, 0x4E}) && host.select(8) && host.start());
    const auto streams = host.next_sub_streams();
    ASSERT_EQ(streams.size(), 2U);
    H264Decoder decoder;
    const auto main = decoder.decode(streams[0].data);
    const auto jpeg = decode_jpeg(streams[1].data);
    ASSERT_TRUE(main && jpeg);
    EXPECT_NEAR(mean(jpeg->y), (mean(main->y) - 16) * 255 / 219, 1.0);
    EXPECT_NEAR(deviation(jpeg->y) / deviation(main->y), 255.0 / 219, 0.03);
    EXPECT_NEAR(deviation(jpeg->u) / deviation(main->u), 255.0 / 224, 0.05);
    EXPECT_NEAR(mean(jpeg->v) - 128, (mean(main->v) - 128) * 255 / 224, 1.0);
    EXPECT_EQ(*std::max_element(jpeg->y.begin(), jpeg->y.begin() + 640 * 4) / 10, 23)
        << "white of the counter's band, 220 of 16 to 235";
}

// --- what a setting does to a picture ------------------------------------------------------------

/// The first main picture after a start, decoded, of a camera on which `prepare` ran first: the
/// same moment of the same scene each time.
template <typename Prepare>
Picture first_main(Prepare prepare) {
    Host host(running_camera());
    EXPECT_TRUE(host.isp({0x08, 0xFF, 0x20, 0x4E}));
    prepare(host);
    EXPECT_TRUE(host.start());
    H264Decoder decoder;
    return decoder.decode(host.next_of(StreamId::kMainH264).data).value_or(Picture(2, 2));
}

template <typename Prepare>
Picture first_raw(StreamId id, uint8_t code, Prepare prepare) {
    Host host(running_camera());
    EXPECT_TRUE(host.select(code));
    prepare(host);
    EXPECT_TRUE(host.start());
    return decode_raw(host.next_of(id));
}

void nothing(Host&) {}

TEST(Effects, MirrorAndFlipTurnTheMainPicture) {
    const Picture plain = first_main(nothing);
    const Picture mirror = first_main([](Host& h) { h.mmp({0x02, 0x02, 0x01}); });
    const Picture flip = first_main([](Host& h) { h.mmp({0x02, 0x02, 0x02}); });
    EXPECT_GT(difference(plain, mirror), 15);
    EXPECT_LT(difference(mirrored(plain), mirror), 6);
    EXPECT_GT(middle_difference(plain, flip), 15);
    EXPECT_LT(middle_difference(flipped(plain), flip), 6);
}

TEST(Effects, LocalAndGrayMirrorTurnOnlyTheirOwnPictures) {
    const auto local = [](Host& h) { h.mmp({0x02, 0x02, 0x10}); };
    const auto gray = [](Host& h) { h.mmp({0x02, 0x02, 0x20}); };
    for (const auto& [id, code] :
         std::map<StreamId, uint8_t>{{StreamId::kYuy2, 0}, {StreamId::kNv21, 4}}) {
        const Picture plain = first_raw(id, code, nothing);
        EXPECT_LT(difference(mirrored(plain), first_raw(id, code, local)), 3);
        EXPECT_EQ(difference(plain, first_raw(id, code, gray)), 0);
    }
    const Picture plain = first_raw(StreamId::kGray, 1, nothing);
    EXPECT_LT(difference(mirrored(plain), first_raw(StreamId::kGray, 1, gray)), 3);
    EXPECT_EQ(difference(plain, first_raw(StreamId::kGray, 1, local)), 0);
}

void pan_tilt(Host& host, int32_t pan, int32_t tilt) {
    Bytes block;
    append_le(block, 4, static_cast<uint32_t>(pan));
    append_le(block, 4, static_cast<uint32_t>(tilt));
    EXPECT_FALSE(host.out(0x21, 0x01, 0x0D00, 0x0100, block).stall);
}

TEST(Effects, PanShiftsTiltAndZoomChangeTheView) {
    const Picture plain = first_raw(StreamId::kYuy2, 0, nothing);
    const Picture right = first_raw(StreamId::kYuy2, 0, [](Host& h) { pan_tilt(h, 36000, 0); });
    const Picture left = first_raw(StreamId::kYuy2, 0, [](Host& h) { pan_tilt(h, -18000, 0); });
    EXPECT_EQ(best_shift(plain, right, 120), 80);
    EXPECT_EQ(best_shift(plain, left, 120), -40);
    const Picture up = first_raw(StreamId::kYuy2, 0, [](Host& h) { pan_tilt(h, 0, 36000); });
    EXPECT_GT(difference(plain, up), 10);
    // The picture moved up by an eighth: its row r shows what row r - 60 showed.
    EXPECT_EQ(best_vertical_shift(plain, up, 80), -60);

    const Picture zoomed =
        first_raw(StreamId::kYuy2, 0, [](Host& h) { h.set_control(1, 0x0B, 2, 5); });
    EXPECT_LT(difference_from_window(zoomed, plain, {160, 120, 320, 240}), 12) << "step 5 doubles";
    EXPECT_GT(difference(plain, zoomed), 10);
}

TEST(Effects, CropShowsAWindowAndSetsTheFlag) {
    Host host(running_camera());
    ASSERT_TRUE(host.select(1) && host.mmp({0x04, 1}) && host.start());
    EXPECT_EQ(host.next_of(StreamId::kGray).rate, 0);
    ASSERT_TRUE(host.mmp({0x13, 9, 0x40, 0x01, 0xF0, 0x00, 0x00, 0x05, 0xC0, 0x03}));
    EXPECT_EQ(host.next_of(StreamId::kGray).rate, 1);
    EXPECT_EQ(host.next_of(StreamId::kNv12).rate, 0);
    ASSERT_TRUE(host.mmp({0x13, 10, 1, 0, 1, 0}));
    EXPECT_EQ(host.next_of(StreamId::kGray).rate, 0);
    ASSERT_TRUE(host.mmp({0x01, 1, 9, 10, 0, 10, 0}));
    EXPECT_EQ(host.next_of(StreamId::kNv12).rate, 1);

    const Picture plain = first_raw(StreamId::kGray, 1, nothing);
    const Picture cropped = first_raw(StreamId::kGray, 1, [](Host& h) {
        h.mmp({0x13, 9, 0x40, 0x01, 0xF0, 0x00});  // 320, 240: the middle
    });
    const Picture main_cropped = first_raw(StreamId::kGray, 1, [](Host& h) {
        h.mmp({0x01, 1, 9, 0x40, 0x01, 0xF0, 0});
    });
    EXPECT_GT(difference(plain, cropped), 10);
    EXPECT_EQ(difference(plain, main_cropped), 0) << "gray has a window of its own";
    EXPECT_LT(difference_from_window(cropped, plain, {80, 60, 160, 120}), 12);
    const Picture main_plain = first_main(nothing);
    const Picture main_window = first_main([](Host& h) { h.mmp({0x01, 8, 9, 0, 0, 0, 0}); });
    EXPECT_GT(difference(main_plain, main_window), 10);
}

Picture with_control(uint8_t selector, size_t width, int32_t value) {
    return first_raw(StreamId::kYuy2, 0,
                     [=](Host& h) { EXPECT_TRUE(h.set_control(3, selector, width, value)); });
}

TEST(Effects, ImageControlsChangeLumaAndChroma) {
    const Picture plain = first_raw(StreamId::kYuy2, 0, nothing);
    EXPECT_NEAR(mean(with_control(2, 2, 30).y) - mean(plain.y), 28, 5) << "brightness";
    EXPECT_NEAR(mean(with_control(2, 2, -30).y) - mean(plain.y), -28, 5);
    EXPECT_LT(deviation(with_control(3, 2, 32).y), deviation(plain.y) * 0.7) << "contrast";
    EXPECT_GT(mean(with_control(4, 2, 100).y), mean(plain.y) + 15) << "gain";
    EXPECT_GT(mean(with_control(9, 2, 250).y), mean(plain.y) + 15) << "gamma";
    EXPECT_GT(mean(with_control(1, 2, 4).y), mean(plain.y) + 15) << "backlight";
    EXPECT_LT(deviation(with_control(7, 2, 0).u), 1) << "saturation";
    EXPECT_GT(deviation(with_control(7, 2, 255).u), deviation(plain.u) * 1.5);
    EXPECT_GT(difference(plain, with_control(8, 2, 15)), 2) << "sharpness";

    const Picture turned = with_control(6, 2, 18000);
    EXPECT_LT(distance_from_opposite(turned.u, plain.u), 2) << "hue by half a turn";

    const Picture warm = first_raw(StreamId::kYuy2, 0, [](Host& h) {
        h.set_control(3, 11, 1, 0);
        h.set_control(3, 10, 2, 6500);
    });
    EXPECT_GT(mean(warm.v), mean(plain.v) + 15) << "white balance";
    const Picture automatic = first_raw(StreamId::kYuy2, 0, [](Host& h) {
        h.set_control(3, 11, 1, 0);
        h.set_control(3, 10, 2, 6500);
        h.set_control(3, 11, 1, 1);
    });
    EXPECT_EQ(mean(automatic.v), mean(plain.v)) << "automatic ignores it";
}

TEST(Effects, ImageAndColourEffectsAct) {
    const auto effect = [](uint8_t kind, uint8_t number) {
        return first_raw(StreamId::kYuy2, 0, [=](Host& h) { h.isp({0xFF, kind, number}); });
    };
    const Picture plain = first_raw(StreamId::kYuy2, 0, nothing);
    const Picture negative = effect(0x0B, 1);
    EXPECT_NEAR(negative.row_y(400)[300], 255 - plain.row_y(400)[300], 1);
    EXPECT_LT(deviation(effect(0x0D, 1).v), 1);
    EXPECT_GT(mean(effect(0x0D, 2).v), 140);
    EXPECT_GT(difference(plain, effect(0x0B, 2)), 5);
}

TEST(Scene, MovesAndRepeatsForTheSameSeedOnly) {
    Host host(running_camera());
    ASSERT_TRUE(host.select(2) && host.start());
    const Picture first = decode_raw(host.next_of(StreamId::kGray));
    const Picture second = decode_raw(host.next_of(StreamId::kGray));
    EXPECT_GT(difference(first, second), 2);
    EXPECT_EQ(first.y, first_raw(StreamId::kGray, 2, nothing).y);
    CameraConfig other = running_camera();
    other.seed = 2;
    Host another(other);
    ASSERT_TRUE(another.select(2) && another.start());
    EXPECT_GT(difference(first, decode_raw(another.next_of(StreamId::kGray))), 5);
}

TEST(JpegPicture, FitsItsLimitByLosingQuality) {
    Picture noise(640, 480);
    std::minstd_rand random(1);
    for (std::vector<uint8_t>* plane : {&noise.y, &noise.u, &noise.v}) {
        std::generate(plane->begin(), plane->end(),
                      [&] { return static_cast<uint8_t>(random() >> 16); });
    }
    JpegEncoder encoder;
    const Bytes best = encoder.encode(noise, 614400);  // what the plain format promises
    const size_t limit = best.size() * 3 / 4;
    const Bytes worse = encoder.encode(noise, limit);
    EXPECT_LE(worse.size(), limit);
    EXPECT_GT(worse.size(), limit / 2) << "no more is given away than has to be";
    EXPECT_TRUE(decode_jpeg(worse).has_value());
}

// --- Y4M -----------------------------------------------------------------------------------------

class Y4mFile : public testing::Test {
  protected:
    void SetUp() override {
        path_ = std::filesystem::path(testing::TempDir()) /
                ("virtcam-" + std::to_string(::getpid()) + ".y4m");
    }
    void TearDown() override { std::filesystem::remove(path_); }

    void write(const std::string& content) { std::ofstream(path_, std::ios::binary) << content; }
    /// Pictures of 64 × 48, picture i with luma 50 + 50 i.
    static std::string pictures(int count) {
        std::string content = "YUV4MPEG2 W64 H48 F30:1 Ip A1:1 C420jpeg\n";
        for (int i = 0; i < count; ++i) {
            const Picture picture(64, 48);
            content += "FRAME\n" + std::string(picture.y.size(), static_cast<char>(50 + 50 * i)) +
                       std::string(2 * picture.u.size(), static_cast<char>(100));
        }
        return content;
    }
    std::string complaint() {
        try {
            Y4mSource source(path_.string());
        } catch (const std::runtime_error& error) {
            return error.what();
        }
        return {};
    }

    std::filesystem::path path_;
};

TEST_F(Y4mFile, IsShownAndRepeated) {
    write(pictures(2));
    CameraConfig config = running_camera();
    config.source = path_.string();
    Host host(config);
    ASSERT_TRUE(host.start(1, 1));
    std::vector<uint8_t> levels;
    for (int i = 0; i < 4; ++i) {
        const Picture picture = unpack_yuy2(host.next_frame()->data, 640, 480);
        levels.push_back(picture.row_y(400)[320]);
    }
    EXPECT_EQ(levels, (std::vector<uint8_t>{100, 50, 100, 50}));
}

TEST_F(Y4mFile, BrokenFilesAreRefusedByName) {
    EXPECT_NE(complaint().find("cannot be opened"), std::string::npos);
    const std::string picture = pictures(1);
    for (const std::string& content :
         {std::string(), std::string("YUV4MPEG2"), std::string("RIFF W64 H48\nFRAME\n"),
          std::string("YUV4MPEG2 W64\nFRAME\n"), std::string("YUV4MPEG2 W-2 H48\nFRAME\n"),
          std::string("YUV4MPEG2 W99999999999 H48\nFRAME\n"),
          std::string("YUV4MPEG2 W63 H48\nFRAME\n"), std::string("YUV4MPEG2 W64 H48 C444\nFRAME\n"),
          picture.substr(0, picture.size() - 1), std::string(10000, 'Y')}) {
        write(content);
        EXPECT_NE(complaint().find(path_.string()), std::string::npos) << content.substr(0, 40);
    }
}

/// How bright the lamp of a YUY2 picture of 640 x 480 is, 0 to 1.
double lamp_of(const Frame& frame) {
    constexpr int kSide = kLampRadius / 2;
    const Picture picture = unpack_yuy2(frame.data, 640, 480);
    std::vector<uint8_t> middle;
    for (int y = kLampY / 2 - kSide / 2; y < kLampY / 2 + kSide / 2; ++y) {
        const uint8_t* row = picture.row_y(y) + kLampX / 2 - kSide / 2;
        middle.insert(middle.end(), row, row + kSide);
    }
    return (mean(middle) - 40) / 170;
}

class Lamp : public testing::TestWithParam<std::chrono::milliseconds> {};

TEST_P(Lamp, TellsTheMomentOfEachClickInThePicturesThatLeaveThen) {
    constexpr double kPeriod = 1.0 / 30;
    const std::chrono::duration<double> delay = GetParam();  // from taking a picture to its leaving
    Host host(running_camera());
    ASSERT_FALSE(host.out(0x01, 11, 1, 3, {}).stall);
    ASSERT_TRUE(host.start(1, 1, 333333));
    int heard = 0;                                                  // ms
    std::map<int, std::vector<std::pair<double, double>>> flashes;  // time and light, by the click
    for (int i = 0; i < 100; ++i) {
        const double taken = 0.25 + i * kPeriod;
        for (; heard < taken * 1000; ++heard) {
            host.camera.iso_in(0x82, 100);
        }
        host.camera.advance(host.now);
        host.now += GetParam();
        const auto frame = host.take();
        ASSERT_TRUE(frame.has_value());
        const double now = taken + delay.count();
        if (const double light = lamp_of(*frame); light > 0.05) {
            flashes[static_cast<int>(std::lround(now))].emplace_back(now, light);
        }
    }
    EXPECT_EQ(flashes.size(), 3U);
    for (const auto& [click, pictures] : flashes) {
        double light = 0;
        double moment = 0;
        for (const auto& [time, share] : pictures) {
            light += share;
            moment += time * share;
        }
        EXPECT_LE(pictures.size(), 2U);
        EXPECT_NEAR(light, 1, 0.05);
        EXPECT_NEAR(moment / light, click, 0.002);
    }
}

INSTANTIATE_TEST_SUITE_P(Delays, Lamp,
                         testing::Values(std::chrono::milliseconds(0),
                                         std::chrono::milliseconds(12),
                                         std::chrono::milliseconds(25)));

TEST(LampAlone, IsNotThereWithoutSound) {
    Host silent(running_camera());
    Host was_heard(running_camera());
    for (const uint16_t setting : {1, 0}) {
        ASSERT_FALSE(was_heard.out(0x01, 11, setting, 3, {}).stall);
    }
    ASSERT_TRUE(silent.start(1) && was_heard.start(1));
    EXPECT_EQ(silent.next_frame()->data, was_heard.next_frame()->data);
    ASSERT_FALSE(was_heard.out(0x01, 11, 1, 3, {}).stall);
    EXPECT_NE(silent.next_frame()->data, was_heard.next_frame()->data);
}

}  // namespace
}  // namespace virtcam::model::test
