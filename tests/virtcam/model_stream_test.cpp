// The video stream: which sub-streams come, their headers and sequence numbers, pacing, payloads
// and the shape of H.264 access units.
#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <thread>

#include "model_fixture.h"
#include "picture_decoder.h"
#include "virtcam/model/counter_code.h"
#include "virtcam/model/h264_encoder.h"
#include "virtcam/model/video_formats.h"

namespace virtcam::model::test {
namespace {

using std::chrono::milliseconds;

uint16_t number(StreamId id) {
    return static_cast<uint16_t>(id);
}

struct Expected {
    uint8_t code;
    std::set<uint16_t> streams;
};

class CombinationCode : public testing::TestWithParam<Expected> {};

TEST_P(CombinationCode, CarriesItsSubStreamsNumberedFromOne) {
    Host host(running_camera());
    ASSERT_TRUE(host.select(GetParam().code));
    ASSERT_TRUE(host.start());
    std::set<uint16_t> seen;
    std::map<uint16_t, uint32_t> last;
    for (int i = 0; i < 30; ++i) {
        for (const SubStream& stream : host.next_sub_streams()) {
            seen.insert(stream.id);
            EXPECT_EQ(stream.sequence, last[stream.id] + 1) << stream.id;
            last[stream.id] = stream.sequence;
            EXPECT_EQ(stream.version, 1);
            EXPECT_EQ(stream.flag, 0U);
            EXPECT_EQ(stream.room, (stream.size + 31) / 32 * 32);
            EXPECT_EQ(std::count(stream.padding.begin(), stream.padding.end(), 0), 0);
        }
    }
    EXPECT_EQ(seen, GetParam().streams);
}

INSTANTIATE_TEST_SUITE_P(All, CombinationCode,
                         testing::Values(Expected{0, {0x2B, 0x29}}, Expected{1, {0x2B, 0x2D}},
                                         Expected{2, {0x2D}}, Expected{3, {0x2B, 0x35, 0x2D}},
                                         Expected{4, {0x2B, 0x2F}}, Expected{5, {0x2B, 0x2D}},
                                         Expected{6, {0x2B, 0x2D}}, Expected{7, {0x2B, 0x35}},
                                         Expected{8, {0x2B, 0x2C}}),
                         [](const auto& parameter) {
                             return "Code" + std::to_string(parameter.param.code);
                         });

TEST(Stream, BeforeAnyCommandTheCombinationIsEight) {
    Host host(running_camera());
    ASSERT_TRUE(host.start());
    const auto streams = host.next_sub_streams();
    ASSERT_EQ(streams.size(), 2U);
    EXPECT_EQ(streams[0].id, 0x2B);
    EXPECT_EQ(streams[1].id, 0x2C);
}

TEST(Stream, Nv12JoinsAnyCombinationSurvivesARestartAndEndsWithPower) {
    Host host(running_camera());
    ASSERT_TRUE(host.select(2) && host.mmp({0x04, 1}) && host.start());
    EXPECT_EQ(host.next_of(StreamId::kNv12).size, 640U * 480 * 3 / 2);
    ASSERT_TRUE(host.mmp({0x2D, 1}));
    const SubStream wide = host.next_of(StreamId::kNv12);
    EXPECT_EQ(wide.width, 864);
    EXPECT_EQ(wide.size, 864U * 486 * 3 / 2);
    ASSERT_TRUE(host.stop() && host.start());
    EXPECT_EQ(host.next_of(StreamId::kNv12).sequence, 1U);
    host.camera.power_cycle();
    ASSERT_TRUE(host.select(2) && host.start());
    for (const SubStream& stream : host.next_sub_streams()) {
        EXPECT_NE(stream.id, number(StreamId::kNv12));
    }
}

TEST(Stream, PictureSizesFollowTheMainSizeAndTheLocalView) {
    Host host(running_camera());
    ASSERT_TRUE(host.select(7) && host.start(4, 1));
    EXPECT_EQ(host.next_of(StreamId::kSecondH264).width, 320);
    ASSERT_TRUE(host.start(4, 4));
    EXPECT_EQ(host.next_of(StreamId::kMainH264).width, 1280);
    const SubStream second = host.next_of(StreamId::kSecondH264);
    EXPECT_EQ(second.width, 640);
    EXPECT_EQ(second.height, 360);
    ASSERT_TRUE(host.select(0));
    EXPECT_EQ(host.next_of(StreamId::kYuy2).size, 640U * 480 * 2);
    ASSERT_TRUE(host.aux({0x28, 11}));
    EXPECT_EQ(host.next_of(StreamId::kYuy2).size, 800U * 450 * 2);
    ASSERT_TRUE(host.aux({0x28, 5}) && host.select(4));
    EXPECT_EQ(host.next_of(StreamId::kNv21).size, 640U * 360 * 3 / 2);
}

TEST(Stream, EverySubStreamRunsAtItsOwnRate) {
    Host host(running_camera());
    ASSERT_TRUE(host.select(3) && host.mmp({0x04, 1}) && host.start());
    ASSERT_TRUE(host.isp({0x02, 20, 0}));
    std::map<uint16_t, int> pictures;
    uint32_t time = 0;
    while (time < 2 * 90000) {
        for (const SubStream& stream : host.next_sub_streams()) {
            time = stream.timestamp;
            if (time < 2 * 90000) {
                ++pictures[stream.id];
            }
        }
    }
    EXPECT_NEAR(pictures[number(StreamId::kMainH264)], 40, 1);
    EXPECT_NEAR(pictures[number(StreamId::kSecondH264)], 30, 1);
    EXPECT_NEAR(pictures[number(StreamId::kGray)], 20, 1);
    EXPECT_NEAR(pictures[number(StreamId::kNv12)], 20, 1);
}

TEST(Stream, StillsComeOncePerTriggerInCodesFiveAndSixOnly) {
    for (const uint8_t code : {5, 6}) {
        Host host(running_camera());
        ASSERT_TRUE(host.select(code) && host.start());
        const auto stills_in = [&](int frames) {
            int stills = 0;
            for (int i = 0; i < frames; ++i) {
                for (const SubStream& stream : host.next_sub_streams()) {
                    stills += stream.id == number(StreamId::kJpeg) ? 1 : 0;
                }
            }
            return stills;
        };
        EXPECT_EQ(stills_in(5), 0);
        ASSERT_TRUE(host.mmp({0x03}));
        EXPECT_EQ(stills_in(1), 1) << "in the next frame";
        EXPECT_EQ(stills_in(5), 0);
        ASSERT_TRUE(host.mmp({0x03}) && host.mmp({0x03}));
        EXPECT_EQ(stills_in(5), 1) << "at most one pending";
        ASSERT_TRUE(host.select(1) && host.mmp({0x03}) && host.select(code));
        EXPECT_EQ(stills_in(5), 0);
    }
}

Bytes nal_headers(ByteView unit) {
    Bytes headers;
    for (size_t i = 0; i + 4 < unit.size(); ++i) {
        if (load_u32(unit, i) == 0x01000000) {
            headers.push_back(unit[i + 4]);
        }
    }
    return headers;
}

TEST(H264, AccessUnitsHaveTheCamerasShapeAtEverySize) {
    for (uint8_t frame = 1; frame <= 5; ++frame) {
        Host host(running_camera());
        ASSERT_TRUE(host.select(7) && host.start(4, frame));
        for (const uint16_t kbps : {2000, 300, 16601}) {
            ASSERT_TRUE(host.isp({0x08, 0xFF, uint8_t(kbps & 0xFF), uint8_t(kbps >> 8)}));
            ASSERT_TRUE(host.isp({0x04}));
            for (int i = 0; i < 3; ++i) {
                const SubStream stream = host.next_of(StreamId::kMainH264);
                if (i == 0) {
                    ASSERT_EQ(nal_headers(stream.data), (Bytes{0x67, 0x68, 0x65}));
                    const auto pps = std::find(stream.data.begin(), stream.data.end(), 0x68);
                    const auto at = static_cast<size_t>(pps - stream.data.begin());
                    EXPECT_EQ(load_u32(stream.data, at - 4), 0x01000000U);
                    EXPECT_EQ(load_u32(stream.data, at + 4), 0x01000000U) << "8-byte PPS";
                } else {
                    EXPECT_EQ(nal_headers(stream.data), Bytes{0x41});
                }
                EXPECT_EQ(load_u32(stream.data, 0), 0x01000000U);
            }
        }
        EXPECT_EQ(host.camera.status()["failure"], "");
    }
}

TEST(H264, SecondStreamStartsWithAKeyFrameAndObeysRequests) {
    Host host(running_camera());
    ASSERT_TRUE(host.select(7) && host.start());
    EXPECT_EQ(nal_headers(host.next_of(StreamId::kSecondH264).data).size(), 3U);
    EXPECT_EQ(nal_headers(host.next_of(StreamId::kSecondH264).data).size(), 1U);
    ASSERT_TRUE(host.isp({0x04}));
    EXPECT_EQ(nal_headers(host.next_of(StreamId::kSecondH264).data).size(), 3U);
    EXPECT_EQ(host.camera.status()["streams"]["h264-2"]["key_frames"], 2);
}

TEST(H264, NormaliserDropsWhatDoesNotBelongAndRefusesWhatCannotBe) {
    const Bytes sps{0, 0, 1, 0x27, 1, 2, 3};
    const Bytes pps{0, 0, 0, 1, 0x28, 4, 5, 6};
    const Bytes sei{0, 0, 0, 1, 0x06, 9, 9};
    const Bytes delimiter{0, 0, 0, 1, 0x09, 0x10};
    const Bytes idr{0, 0, 1, 0x25, 7, 8};
    const Bytes slice{0, 0, 0, 1, 0x61, 7, 8};
    const auto join = [](std::initializer_list<Bytes> units) {
        Bytes all;
        for (const Bytes& unit : units) {
            all.insert(all.end(), unit.begin(), unit.end());
        }
        return all;
    };
    EXPECT_EQ(
        normalise_access_unit(join({delimiter, sps, pps, sei, idr})),
        (Bytes{0, 0, 0, 1, 0x67, 1, 2, 3, 0, 0, 0, 1, 0x68, 4, 5, 6, 0, 0, 0, 1, 0x65, 7, 8}));
    EXPECT_EQ(normalise_access_unit(join({sei, slice})), (Bytes{0, 0, 0, 1, 0x41, 7, 8}));
    EXPECT_THROW(normalise_access_unit(join({slice, slice})), std::runtime_error);
    EXPECT_THROW(normalise_access_unit(join({sps, idr})), std::runtime_error);
    EXPECT_THROW(normalise_access_unit(join({sps, {0, 0, 1, 0x28, 4, 5}, idr})),
                 std::runtime_error);
    EXPECT_THROW(normalise_access_unit(join({{0, 0, 1, 0x27, 0x68, 3}, pps, idr})),
                 std::runtime_error);
    EXPECT_THROW(normalise_access_unit({}), std::runtime_error);
}

TEST(Payloads, CarryHeadersTogglingFrameIdAndAHeaderOnlyEnd) {
    Host host(running_camera());
    ASSERT_TRUE(host.start());
    for (int i = 0; i < 4; ++i) {
        const auto frame = host.next_frame();
        ASSERT_TRUE(frame.has_value());
        for (size_t p = 0; p < frame->payloads.size(); ++p) {
            const Bytes& payload = frame->payloads[p];
            const bool last = p + 1 == frame->payloads.size();
            EXPECT_EQ(payload[1], 0x8C | (last ? 0x02 : 0x00) | (i % 2));
            EXPECT_EQ(payload.size() == 12, last);
            if (p + 2 < frame->payloads.size()) {
                EXPECT_EQ(payload.size(), 8192U);
            }
        }
    }
}

TEST(Payloads, EndOfFrameMayRideOnTheLastData) {
    CameraConfig config = running_camera();
    config.header_only_eof = false;
    config.max_payload = 1024;
    Host host(config);
    ASSERT_TRUE(host.start());
    const auto frame = host.next_frame();
    ASSERT_TRUE(frame.has_value());
    EXPECT_GT(frame->payloads.back().size(), 12U);
    EXPECT_EQ(frame->payloads.front().size(), 1024U);
}

TEST(Payloads, SourceClockTellsWhenEachLeft) {
    Host host(running_camera());
    ASSERT_TRUE(host.start());
    host.pass(milliseconds(0));
    constexpr uint32_t kClockPerMs = 48'000;
    uint32_t pts = 0;
    const auto frame_number =
        static_cast<uint16_t>(host.now.time_since_epoch() / milliseconds(1) % 2048);
    for (uint32_t ms = 0; ms < 3; ++ms) {
        const auto payload = host.camera.bulk_in(0x81, 512, host.now + milliseconds(ms));
        ASSERT_TRUE(payload.has_value());
        pts = load_u32(*payload, 2);
        EXPECT_EQ(load_u32(*payload, 6), pts + ms * kClockPerMs);
        EXPECT_EQ(load_u16(*payload, 10), (frame_number + ms) % 2048);
    }
    while (host.camera.bulk_in(0x81, 65536, host.now)) {
    }
    host.pass(milliseconds(40));
    const auto next = host.camera.bulk_in(0x81, 512, host.now);
    ASSERT_TRUE(next.has_value());
    EXPECT_GT(load_u32(*next, 2), pts);
    EXPECT_EQ(load_u32(*next, 6), 40 * kClockPerMs) << "of the clock that began with the stream";
}

TEST(Payloads, RoomBoundsThem) {
    Host host(running_camera());
    ASSERT_TRUE(host.start());
    host.pass(milliseconds(0));
    EXPECT_FALSE(host.camera.bulk_in(0x81, 12, host.now).has_value());
    const auto payload = host.camera.bulk_in(0x81, 512, host.now);
    ASSERT_TRUE(payload.has_value());
    EXPECT_EQ(payload->size(), 512U);
    EXPECT_FALSE(host.camera.bulk_in(0x82, 8192, host.now).has_value());
}

TEST(PlainFormats, CarryOnePictureEach) {
    Host host(running_camera());
    ASSERT_TRUE(host.start(1, 1));
    EXPECT_EQ(host.next_frame()->data.size(), 640U * 480 * 2);
    ASSERT_TRUE(host.start(2, 1));
    const Bytes nv12 = host.next_frame()->data;
    ASSERT_EQ(nv12.size(), 864U * 486 * 3 / 2);
    EXPECT_EQ(read_counter(nv12.data(), 864, 486, 864), 1U);
    ASSERT_TRUE(host.start(3, 1));
    const auto jpeg = decode_jpeg(host.next_frame()->data);
    ASSERT_TRUE(jpeg.has_value());
    EXPECT_EQ(jpeg->width, 640);
}

CameraConfig paced_camera() {
    CameraConfig config = running_camera();
    config.paced = true;
    return config;
}

TEST(Pacing, OneFrameEachPeriod) {
    Host host(paced_camera());
    ASSERT_TRUE(host.select(1) && host.start());
    const TimePoint first = host.now;
    EXPECT_EQ(host.camera.advance(host.now), first + std::chrono::nanoseconds(33333300));
    EXPECT_TRUE(host.take().has_value());
    host.pass(milliseconds(33));
    EXPECT_FALSE(host.take().has_value());
    host.pass(milliseconds(1));
    EXPECT_TRUE(host.take().has_value());
}

TEST(Pacing, ASlowHostSkipsPeriodsAndConsumesNoNumbers) {
    Host host(paced_camera());
    ASSERT_TRUE(host.select(1) && host.start());
    host.pass(milliseconds(0));
    for (int i = 0; i < 10; ++i) {
        host.pass(std::chrono::nanoseconds(33333300));
    }
    const auto first = host.take();
    ASSERT_TRUE(first.has_value());
    EXPECT_EQ(demultiplex(first->data)[0].sequence, 1U);
    EXPECT_FALSE(host.take().has_value()) << "nothing is stored up";
    host.pass(std::chrono::nanoseconds(33333300));
    const auto second = host.take();
    ASSERT_TRUE(second.has_value());
    const SubStream main = demultiplex(second->data)[0];
    EXPECT_EQ(main.sequence, 2U);
    EXPECT_NEAR(main.timestamp, 11 * 3000, 2) << "time goes on";
}

TEST(Pacing, ALateAdvanceMakesOneFrameNotABurst) {
    Host host(paced_camera());
    ASSERT_TRUE(host.select(1) && host.start());
    host.pass(milliseconds(0));
    ASSERT_TRUE(host.take().has_value());
    host.pass(std::chrono::seconds(1));
    EXPECT_TRUE(host.take().has_value());
    host.camera.advance(host.now);
    EXPECT_FALSE(host.take().has_value());
}

TEST(Lifetime, EveryStopEndsTheStreamAndDropsTheFrameInProgress) {
    Host host(running_camera());
    const auto stops = {
        +[](Host& h) { h.stop(); },
        +[](Host& h) { h.out(0x02, 1, 0, 0x81, {}); },
        +[](Host& h) { h.out(0x00, 9, 1, 0, {}); },
        +[](Host& h) { h.camera.bus_reset(); },
    };
    for (const auto stop : stops) {
        ASSERT_TRUE(host.start());
        host.pass(milliseconds(0));
        ASSERT_TRUE(host.camera.bulk_in(0x81, 8192, host.now).has_value());
        stop(host);
        EXPECT_EQ(host.pass(milliseconds(0)), TimePoint::max());
        EXPECT_FALSE(host.camera.bulk_in(0x81, 8192, host.now).has_value());
        ASSERT_TRUE(host.start());
        const auto frame = host.next_frame();
        ASSERT_TRUE(frame.has_value());
        EXPECT_EQ(frame->payloads[0][1] & 1, 0);
        const auto streams = demultiplex(frame->data);
        EXPECT_EQ(streams[0].sequence, 1U);
        EXPECT_EQ(nal_headers(streams[0].data).size(), 3U);
        host.stop();
    }
}

TEST(Lifetime, ListenerIsCalledWhenAStreamStartsAndWhenAFrameWasTaken) {
    Host host(running_camera());
    int calls = 0;
    host.camera.set_listener([&] { ++calls; });
    ASSERT_TRUE(host.start());
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(host.camera.advance(host.now), TimePoint::max()) << "a frame waits";
    ASSERT_TRUE(host.take().has_value());
    EXPECT_EQ(calls, 2);
}

TEST(Threads, ControlAndDataMayRunBesideAdvance) {
    Host host(running_camera());
    ASSERT_TRUE(host.start());
    std::thread maker([&] {
        for (int i = 0; i < 60; ++i) {
            host.camera.advance(TimePoint(milliseconds(i)));
        }
    });
    std::thread taker([&] {
        for (int i = 0; i < 2000; ++i) {
            host.camera.bulk_in(0x81, 8192, host.now);
            host.camera.iso_in(0x82, 100);
        }
    });
    for (int i = 0; i < 200; ++i) {
        host.select(static_cast<uint8_t>(i % 9));
        host.isp({0x04});
        host.camera.status();
        if (i % 50 == 49) {
            host.camera.unplug();
            host.camera.plug();
            host.start();
        }
    }
    maker.join();
    taker.join();
    EXPECT_TRUE(host.camera.attached());
}

}  // namespace
}  // namespace virtcam::model::test
