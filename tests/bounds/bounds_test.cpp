// Every host call returns within its bound (docs/robustness.md), whatever has become of the camera. The
// bounds are those of the fixed waits: 5 s of a request, once more where the monitor's question goes
// first, and the sleeps of a stop.
#include <gtest/gtest.h>
#include <string.h>

#include <algorithm>
#include <cstdio>
#include <string>

#include "tests/simulation/camera.h"
#include "tests/simulation/host.h"
#include "tests/support/TvFiles.h"

namespace sim {
namespace {

using namespace std::chrono_literals;

enum Manner { kGood, kDead, kMute, kBabbling, kSlow, kManners };
constexpr const char* kMannerNames[] = {"Good", "Dead", "Mute", "Babbling", "Slow"};

/// A good camera until it is told otherwise.
class Patient : public Camera {
  public:
    using Camera::Camera;

    void age() { is_older_ = true; }
    void become(Manner manner) {
        manner_ = manner;
        if (manner == kDead) {
            Bus::unplug();
        }
    }

    Answer control(const Setup& setup, unsigned char* data) override {
        return delay(manner_ == kMute ? Answer{LIBUSB_ERROR_TIMEOUT} : Camera::control(setup, data),
                     std::chrono::milliseconds(setup.timeout_ms));
    }
    int call(const std::string& name, int interface) override {
        return is_older_ && name == "libusb_claim_interface" && interface == 2
                   ? static_cast<int>(LIBUSB_ERROR_NOT_FOUND)
                   : 0;
    }
    Answer bulk_out(const unsigned char* data, int length) override {
        constexpr Time kBulkTimeout = 100ms;
        return delay(Camera::bulk_out(data, length), kBulkTimeout);
    }
    Ending submitted(const libusb_transfer& transfer) override {
        const Ending ending = Camera::submitted(transfer);
        if (manner_ == kMute) {
            return {ending.status, kForever};
        }
        // Full transfers without a pause, some 60 Mbit/s.
        return manner_ == kBabbling ? Ending{ending.status, World::now() + 1ms} : ending;
    }
    void fill(libusb_transfer& transfer) override {
        Camera::fill(transfer);
        if (manner_ == kBabbling) {
            babble(transfer);
        }
    }

  private:
    Answer delay(Answer answer, Time timeout) const {
        constexpr Time kBeforeTimeout = 1ms;
        answer.after = manner_ == kMute   ? kForever
                       : manner_ == kSlow ? timeout - kBeforeTimeout
                                          : Time(0);
        return answer;
    }

    /// Full to the brim, every payload the end of a frame.
    static void babble(libusb_transfer& transfer) {
        memset(transfer.buffer, 0x5A, static_cast<size_t>(transfer.length));
        transfer.buffer[0] = 12;
        transfer.buffer[1] = 2;
        transfer.actual_length = transfer.length;
        for (int i = 0; i < transfer.num_iso_packets; ++i) {
            transfer.iso_packet_desc[i].actual_length = transfer.iso_packet_desc[i].length;
        }
    }

    Manner manner_ = kGood;
    bool is_older_ = false;
};

/// Where a call finds the camera. Older boot code lacks the interface that the loader tries first, and
/// takes the image by the extension unit: in pieces of 32 bytes, each of which may last a second.
enum Stage { kLoading, kLoadingOlder, kReady, kPlaying };

struct BoundedCall {
    const char* name;
    Stage stage;
    void (*make)(Host& host);
    Time bounds[kManners];
};

// What the bounds are made of.
constexpr Time kNone = 50ms;              // no wait, but for threads that start
constexpr Time kQuestion = 5s;            // the longest request; the monitor asks one a second
constexpr Time kRequest = 2 * kQuestion;  // behind the monitor's
constexpr Time kShortRequest = 1s + kQuestion;  // of the loader's road, behind the monitor's
constexpr Time kFullQueue = 1500ms;  // a request behind three completions, each of which waits for
                                     // a buffer: of a start seven may, before anybody reads
constexpr Time kStop = 1s;           // the sleeps of a stop: 10, 400 and 200 ms, and its threads
constexpr Time kTwoStops = 2 * kStop;     // behind that of the loader, which noticed the loss
constexpr Time kPause = 2s + kNone;       // the camera's own test
constexpr Time kLoop = 1100ms;            // the loader looks once a second whether it is to end,
constexpr Time kBeforeLook = 3s + kNone;  // or after three requests of a second

// clang-format off
const BoundedCall kCalls[] = {
    // call, stage, how, and the bounds: good, dead, mute, babbling, slow
    {"StartRecording", kReady, [](Host& h) { h->StartRecording(); },
     {kNone, kNone, 3 * kRequest, 7 * kFullQueue + kNone,
      22 * kRequest + 7 * kFullQueue}},
    {"StopRecording", kPlaying, [](Host& h) { h->StopRecording(); },
     {kStop, kTwoStops, kRequest + kStop, kStop, kRequest + kStop}},
    {"set bit rate", kPlaying, [](Host& h) { set(h, CAM_PROPERTY_BITRATE, 1000000); },
     {kNone, kStop, kRequest, kNone, kRequest}},
    {"set pan", kPlaying, [](Host& h) { set(h, CAM_PROPERTY_PAN, 5); },
     {kNone, kStop, 2 * kRequest, kNone, 2 * kRequest}},
    {"set an option", kPlaying, [](Host& h) { set(h, CAM_PROPERTY_MIRROR, 1); },
     {kNone, kStop, kRequest, kNone, 3 * kRequest}},
    {"write a register", kPlaying, [](Host& h) { set(h, CAM_PROPERTY_I2C_WRITE_AUDIO, 1); },
     {kNone, kStop, 2 * kRequest, kNone, 2 * kRequest}},
    {"read a register", kPlaying, [](Host& h) { set(h, CAM_PROPERTY_I2C_READ_AUDIO, 1); },
     {kNone, kStop, 3 * kRequest, kNone, 3 * kRequest}},
    {"set signal type", kPlaying, [](Host& h) { set(h, CAM_PROPERTY_SIGNAL_TYPE, 0); },
     {kStop, kTwoStops, 4 * kRequest + kStop, 7 * kFullQueue + kStop,
      23 * kRequest + 7 * kFullQueue + kStop}},
    {"get pan", kPlaying, [](Host& h) { get(h, CAM_PROPERTY_PAN); },
     {kNone, kStop, kRequest, kNone, kRequest}},
    {"get lux", kPlaying, [](Host& h) { get(h, CAM_PROPERTY_LUX); },
     {kNone, kStop, 2 * kRequest, kNone, 2 * kRequest}},
    {"video test", kPlaying, [](Host& h) { get(h, CAM_PROPERTY_VIDEO_TEST); },
     {kPause, kStop, kRequest, kPause, 2 * kRequest + kPause}},
    {"connection test", kPlaying, [](Host& h) { get(h, CAM_PROPERTY_CONNECTION_TEST); },
     {kNone, kStop, 2 * kShortRequest, kNone, 2 * kShortRequest}},
    {"a main observer", kPlaying, [](Host& h) { visit(h, CAM_STREAM_H264_MAIN); },
     {kNone, kNone, kRequest, kNone, kRequest + kFullQueue}},
    {"an observer", kPlaying, [](Host& h) { visit(h, CAM_STREAM_PCM); },
     {kNone, kNone, kNone, kNone, kNone}},
    {"second Init", kLoading, [](Host& h) { h->Init(Host::hear, 0); },
     {kLoop, kLoop, kBeforeLook, kLoop, kBeforeLook}},
    {"second Init", kLoadingOlder, [](Host& h) { h->Init(Host::hear, 0); },
     {kLoop, kLoop, kBeforeLook, kLoop, kBeforeLook}},
    {"second Init", kPlaying, [](Host& h) { h->Init(Host::hear, 0); },
     {kLoop, kLoop, kQuestion + kLoop, kLoop, kQuestion + kLoop}},
    {"cam_destroy", kLoading, [](Host& h) { h.destroy(); },
     {kLoop, kLoop, kBeforeLook, kLoop, kBeforeLook}},
    {"cam_destroy", kLoadingOlder, [](Host& h) { h.destroy(); },
     {kLoop, kLoop, kBeforeLook, kLoop, kBeforeLook}},
    {"cam_destroy", kReady, [](Host& h) { h.destroy(); },
     {kLoop, kLoop, 2 * kQuestion + kLoop, kLoop, 2 * kQuestion + kLoop}},
    {"cam_destroy", kPlaying, [](Host& h) { h.destroy(); },
     {kLoop + kStop, kLoop + kStop, 2 * kQuestion + kLoop + kStop, kLoop + kStop, 2 * kQuestion + kLoop + kStop}},
};
// clang-format on

class Bounds : public ::testing::TestWithParam<Manner> {
  protected:
    void SetUp() override {
        test::RemoveTvFiles();
        test::WriteFile("/mtd_exe/.info", "T-XXX12");
        test::WriteFile("/dtv/cm_frequency", "1\n");
        test::WriteFile("/mtd_rwcommon/lumo/bin/Tarlo_Ext_FW.bin", test::ImageOf(1 << 16));
    }

    /// How long the call lasts, the longest of several moments at which the camera changes. What loads
    /// its firmware was like that from the beginning, and is met all along its way.
    static Time longest(const BoundedCall& call) {
        if (call.stage > kLoadingOlder || (GetParam() != kMute && GetParam() != kSlow)) {
            return std::max(length_at(call, 3ms), length_at(call, 790ms));
        }
        constexpr Time kSpan = 6s, kStep = 390ms;
        Time longest{};
        for (Time moment{}; moment < kSpan; moment += kStep) {
            longest = std::max(longest, length_at(call, moment));
        }
        return longest;
    }

  private:
    static Time length_at(const BoundedCall& call, Time moment) {
        Patient camera(call.stage <= kLoadingOlder ? kBootCode : kRunTime);
        const World world;
        const Bus bus(&camera);
        Bus::publish_listing();
        if (call.stage == kLoadingOlder) {
            camera.age();
        }
        const bool from_the_beginning = call.stage <= kLoadingOlder && GetParam() != kDead;
        if (from_the_beginning) {
            camera.become(GetParam());
        }
        Reader pictures(CAM_STREAM_H264_MAIN), sound(CAM_STREAM_PCM);
        Host host;
        enter(host, call.stage);
        host->RegisterObserver(&pictures);
        host->RegisterObserver(&sound);
        pass(moment);
        if (!from_the_beginning) {
            camera.become(GetParam());
            pass(moment);
        }
        const Time begin = World::now();
        call.make(host);
        const Time length = World::now() - begin;
        camera.become(kGood);
        host.destroy();
        return length;
    }

    static void enter(Host& host, Stage stage) {
        if (stage <= kLoadingOlder) {
            host->Init(Host::hear, 0);
            return;
        }
        ASSERT_TRUE(host.init());
        if (stage == kPlaying) {
            ASSERT_TRUE(host->StartRecording());
            ASSERT_EQ(host->GetState(), CAM_STATE_PLAYING);
        }
    }
};
INSTANTIATE_TEST_SUITE_P(Camera, Bounds, ::testing::Values(kGood, kDead, kMute, kBabbling, kSlow),
                         [](const auto& manner) {
                             return std::string(kMannerNames[manner.param]);
                         });

/// A time-out is given as a point of the clock in whole microseconds.
constexpr Time kRounding = 1us;

TEST_P(Bounds, HoldForEveryCall) {
    for (const BoundedCall& call : kCalls) {
        const Time length = longest(call);
        EXPECT_LE(length, call.bounds[GetParam()] + kRounding)
            << call.name << " in stage " << call.stage;
        RecordProperty(std::string(call.name) + " " + std::to_string(call.stage),
                       std::to_string(length / 1ms) + " ms");
    }
}

}  // namespace
}  // namespace sim
