// Init and the stop of recording beside every other host call, in every stage, in several orders of
// the threads; two camera objects at once.
#include "tests/meetings/life.h"

namespace sim {
namespace {

constexpr Time kLongest = 30s;  // of two calls that meet on a good camera

struct HostCall {
    const char* name;
    void (*make)(Host& host);
};

const HostCall kCalls[] = {
    {"Init", [](Host& h) { h->Init(Host::hear, 0); }},
    {"Init without a callback", [](Host& h) { h->Init(nullptr, 0); }},
    {"StartRecording", [](Host& h) { h->StartRecording(); }},
    {"StopRecording", [](Host& h) { h->StopRecording(); }},
    {"GetState", [](Host& h) { h->GetState(); }},
    {"a main observer", [](Host& h) { visit(h, CAM_STREAM_H264_MAIN); }},
    {"an observer of sound", [](Host& h) { visit(h, CAM_STREAM_PCM); }},
    {"set bit rate", [](Host& h) { set(h, CAM_PROPERTY_BITRATE, 1000000); }},
    {"set an option", [](Host& h) { set(h, CAM_PROPERTY_FLIP, 1); }},
    {"set size", [](Host& h) { set(h, CAM_PROPERTY_DIMENSION, 480 << 16 | 640); }},
    {"set sample rate", [](Host& h) { set(h, CAM_PROPERTY_SAMPLERATE, 24000); }},
    {"set signal type", [](Host& h) { set(h, CAM_PROPERTY_SIGNAL_TYPE, CAM_SIGNAL_H264_YUYV); }},
    {"set video mode", [](Host& h) { set(h, CAM_PROPERTY_VIDEO_MODE, 0); }},
    {"get what is kept", [](Host& h) { get(h, CAM_PROPERTY_BITRATE); }},
    {"get from the camera", [](Host& h) { get(h, CAM_PROPERTY_LUX); }},
    {"get by the loader's road", [](Host& h) { get(h, CAM_PROPERTY_CONNECTION_TEST); }},
    {"GetCapability", [](Host& h) { h->GetCapability(CAM_CAPABILITY_SIGNAL_TYPE); }},
    {"OnFrameArrival", [](Host& h) { h->OnFrameArrival(nullptr); }},
    {"SetStreamFormat", [](Host& h) { h->SetStreamFormat(CAM_STR_FORMAT_TS); }},
    {"unplug", [](Host&) { Bus::unplug(); }},
};

class MeetingCalls : public ::testing::TestWithParam<Stage> {
  protected:
    void SetUp() override { write_tv_files(); }

    static void meet(const HostCall& one, const HostCall& other, Order order) {
        SCOPED_TRACE(std::string(one.name) + " beside " + other.name + ", order " +
                     std::to_string(order));
        const World world;
        Life life(GetParam());
        order_threads(order);
        const Time begin = World::now();
        {
            const Task first([&] { one.make(life.host()); });
            const Task second([&] { other.make(life.host()); });
        }
        EXPECT_LE(World::now() - begin, kLongest);
        life.expect_to_record();
        life.expect_to_leave_nothing();
    }
    static void meet_all(const HostCall& one) {
        for (const HostCall& other : kCalls) {
            for (int order = kFirst; order < kOrders && !HasFatalFailure(); ++order) {
                meet(one, other, static_cast<Order>(order));
            }
        }
    }
};
INSTANTIATE_TEST_SUITE_P(Stage, MeetingCalls,
                         ::testing::Values(kCreated, kLoading, kReady, kPlaying, kGone),
                         [](const auto& stage) { return std::string(kStageNames[stage.param]); });

TEST_P(MeetingCalls, InitBesideEachOther) {
    meet_all(kCalls[0]);
}

TEST_P(MeetingCalls, TheStopBesideEachOther) {
    meet_all(kCalls[3]);
}

TEST_P(MeetingCalls, TheCablePulledBesideEachOther) {
    meet_all(kCalls[std::size(kCalls) - 1]);
}

/// Every number that a property may have, and some that none has.
TEST_P(MeetingCalls, EveryPropertyByItself) {
    const World world;
    Life life(GetParam());
    constexpr int kBeyondTheLast = CAM_PROPERTY_RESERVED_9 + 2;
    for (int property = -1; property <= kBeyondTheLast; ++property) {
        SCOPED_TRACE(property);
        const Time begin = World::now();
        for (const int value : {0, 1, -1, 0x7FFFFFFF}) {
            set(life.host(), static_cast<CAM_PROPERTY>(property), value);
            get(life.host(), static_cast<CAM_PROPERTY>(property));
        }
        EXPECT_LE(World::now() - begin, kLongest);
    }
    set(life.host(), CAM_PROPERTY_DIMENSION, 480 << 16 | 640);
    set(life.host(), CAM_PROPERTY_DEBUG_LEVEL, 1);
    life.expect_to_record();
    life.expect_to_leave_nothing();
}

/// At any moment of a stage: the loader's pauses last a second, its requests less.
TEST_P(MeetingCalls, Destruction) {
    constexpr Time kSpan = 3s, kStep = 170ms;
    for (Time moment{}; moment < kSpan; moment += kStep) {
        const World world;
        Life life(GetParam());
        pass(moment);
        const Time begin = World::now();
        life.host().destroy();
        EXPECT_LE(World::now() - begin, kLongest);
        life.expect_to_leave_nothing();
    }
}

/// Of an Init that comes while the first one's loader is at work, the second callback alone is told,
/// once.
TEST(SecondInit, HasTheOnlyAnswer) {
    static int answers[2];
    static bool usable = false;
    write_tv_files();
    constexpr Time kSpan = 5s, kStep = 210ms;
    for (Time moment{}; moment < kSpan; moment += kStep) {
        const World world;
        Camera camera(kBootCode);
        const Bus bus(&camera);
        Bus::publish_listing();
        Host host;
        answers[0] = answers[1] = 0;
        host->Init([](bool) { ++answers[0]; }, 0);
        pass(moment);
        const int before = answers[0];
        host->Init(
            [](bool is_usable) {
                ++answers[1];
                usable = is_usable;
            },
            0);
        pass(2min);
        SCOPED_TRACE(moment / 1ms);
        EXPECT_EQ(answers[0], before);
        if (before == 0) {
            EXPECT_EQ(answers[1], 1);
            EXPECT_EQ(host->GetState(), usable ? CAM_STATE_READY : CAM_STATE_DISCONNECTED);
        } else {
            EXPECT_EQ(answers[1], 0);  // it was ready by then
        }
    }
}

/// The camera's interfaces are the first one's: the second one says no and disturbs nobody.
TEST(TwoCameras, TheFirstGoesOnAndTheSecondTakesOverAfterIt) {
    write_tv_files();
    const World world;
    Life life(kPlaying);
    Reader pictures(CAM_STREAM_H264_MAIN);
    life.host()->RegisterObserver(&pictures);
    auto second = std::make_unique<Host>();
    EXPECT_FALSE(second->init());
    EXPECT_EQ((*second)->GetState(), CAM_STATE_DISCONNECTED);
    EXPECT_EQ(life.host()->GetState(), CAM_STATE_PLAYING);
    const size_t before = pictures.records();
    pass(1s);
    EXPECT_GT(pictures.records(), before + 25);
    life.host()->RemoveObserver(&pictures);
    second.reset();
    life.host().destroy();
    Bus::plug(&life.camera());  // a listing that has not changed is not looked at again
    auto third = std::make_unique<Host>();
    EXPECT_TRUE(third->init());
    third.reset();
    EXPECT_EQ(World::threads(), 1u);
}

/// Both bring the camera up at once: one gets it.
TEST(TwoCameras, ThatInitialiseAtOnceShareOneCamera) {
    for (int order = kFirst; order < kOrders; ++order) {
        write_tv_files();
        const World world;
        Camera camera(kBootCode);
        const Bus bus(&camera);
        Bus::publish_listing();
        auto one = std::make_unique<Host>();
        auto other = std::make_unique<Host>();
        order_threads(static_cast<Order>(order));
        (*one)->Init(Host::hear, 0);
        (*other)->Init(Host::hear, 0);
        EXPECT_TRUE(pass_until([&] { return Host::answers().size() == 2; }, 1min));
        const int ready = ((*one)->GetState() == CAM_STATE_READY ? 1 : 0) +
                          ((*other)->GetState() == CAM_STATE_READY ? 1 : 0);
        EXPECT_EQ(ready, 1) << "order " << order;
        one.reset();
        other.reset();
        EXPECT_EQ(World::threads(), 1u);
    }
}

}  // namespace
}  // namespace sim
