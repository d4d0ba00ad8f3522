// Scripted failures, as they come over a real wire. What each leaves behind must not matter: the
// stop returns, and the next start streams.
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "tests/system/plugin_camera.h"
#include "tests/system/system_test.h"
#include "tests/system/usb_tree.h"

namespace system_test {
namespace {

using nlohmann::json;
using std::chrono::seconds;
using Clock = std::chrono::steady_clock;

/// The monitor of the connection asks this by itself, once a second; its refusal is a loss.
const json kMonitorsPoll{{"type", 0xA0}, {"request", 0x81}, {"value", 0x0200}, {"index", 0x0600}};

/// One request among those of a start: the `nth` of its kind.
struct StartRequest {
    json selector;
    unsigned nth = 1;
};

/// True when a start cannot do without the answer: negotiation of the pictures, sampling rate,
/// range of the volume, and the alternate setting in which the sound flows. What else is refused is
/// passed over.
bool is_vital(const json& selector) {
    constexpr unsigned kSetCur = 0x01;
    constexpr unsigned kSetInterface = 11;
    const auto type = selector.at("type").get<unsigned>();
    const auto request = selector.at("request").get<unsigned>();
    const auto index = selector.at("index").get<unsigned>();
    const bool probe_or_commit = (type == 0x21 || type == 0xA1) && index == 1;
    const bool sampling_rate = type == 0x22 || type == 0xA2;
    const bool volume_range = index == 0x0503 && request != kSetCur;
    const bool sound_on = type == 0x01 && request == kSetInterface && index == 3;
    return probe_or_commit || sampling_rate || volume_range || sound_on;
}

/// One object for all failures of a scenario: it must outlive them.
class Faults : public SystemTest {
  protected:
    void SetUp() override {
        SystemTest::SetUp();
        set_up_camera();
    }

    void set_up_camera() {
        power_on_for_plugin();
        camera_ = std::make_unique<PluginCamera>();
        ASSERT_TRUE(camera_->init()) << remote_.last_commands();
    }

    CAM_STATE state() { return (*camera_)->GetState(); }

    /// Puts one rule in the place of all others.
    void set_rule(const json& on, const json& action, unsigned nth = 1, unsigned count = 1) {
        remote_.command("no-faults");
        remote_.command("fault " +
                        json{{"on", on}, {"nth", nth}, {"count", count}, {"do", action}}.dump());
    }

    void expect_struck(unsigned times) {
        EXPECT_TRUE(wait_until([&] { return remote_.strikes() == std::vector{times}; }, seconds(5)))
            << "struck " << json(remote_.strikes()).dump();
    }

    void start_streaming() {
        ASSERT_TRUE(camera_->start());
        ASSERT_EQ(state(), CAM_STATE_PLAYING);
        ASSERT_TRUE(camera_->streams());
    }

    void expect_stop() {
        EXPECT_TRUE(camera_->stop());
        EXPECT_EQ(state(), CAM_STATE_READY);
    }

    /// A start fails, is undone, and leaves a camera that is ready.
    void expect_failed_start() {
        EXPECT_FALSE(camera_->start());
        EXPECT_EQ(state(), CAM_STATE_READY);
        EXPECT_FALSE(camera_->stop()) << "nothing was playing";
        EXPECT_EQ(state(), CAM_STATE_READY);
    }

    void expect_recovery() {
        remote_.command("no-faults");
        start_streaming();
        expect_stop();
    }

    /// The requests of one good start, in their order.
    std::vector<StartRequest> start_sequence() {
        const size_t before = remote_.status().at("commands").size();
        EXPECT_TRUE(camera_->start());
        const json commands = remote_.status().at("commands");
        expect_stop();
        std::vector<StartRequest> sequence;
        std::map<json, unsigned> seen;
        for (size_t i = before; i < commands.size(); ++i) {
            const json& each = commands[i];
            const json selector{{"type", each.at("request_type")},
                                {"request", each.at("request")},
                                {"value", each.at("value")},
                                {"index", each.at("index")}};
            if (selector != kMonitorsPoll) {
                sequence.push_back({selector, ++seen[selector]});
            }
        }
        // Alternate settings are not among the camera's commands: pictures idle, sound on.
        sequence.push_back({{{"type", 1}, {"request", 11}, {"value", 0}, {"index", 1}}});
        sequence.push_back({{{"type", 1}, {"request", 11}, {"value", 1}, {"index", 3}}});
        return sequence;
    }

    std::unique_ptr<PluginCamera> camera_;
};

TEST_F(Faults, StallOfEachRequestOfTheStart) {
    // Once in an object's life a start tells the frequency of the mains; a refusal is no failure,
    // and the next start tells it again.
    const json mains{{"type", 0x21}, {"request", 1}, {"value", 0x0500}, {"index", 0x0300}};
    const json nothing{{"late_ms", 0}};
    const std::pair<json, unsigned> starts[] = {{"stall", 1}, {nothing, 1}, {nothing, 0}};
    for (const auto& [action, strikes] : starts) {
        set_rule({{"control", mains}}, action);
        ASSERT_TRUE(camera_->start());
        expect_stop();
        expect_struck(strikes);
    }
    remote_.command("no-faults");

    const std::vector<StartRequest> sequence = start_sequence();
    size_t vital = 0;
    for (const StartRequest& request : sequence) {
        SCOPED_TRACE(request.selector.dump() + ", number " + std::to_string(request.nth));
        set_rule({{"control", request.selector}}, "stall", request.nth);
        if (is_vital(request.selector)) {
            ++vital;
            expect_failed_start();
        } else {
            EXPECT_TRUE(camera_->start());
            EXPECT_EQ(state(), CAM_STATE_PLAYING);
            EXPECT_TRUE(camera_->wait_for_records(CAM_STREAM_H264_MAIN, 1));
            EXPECT_TRUE(camera_->wait_for_records(CAM_STREAM_PCM, 1));
            expect_stop();
        }
        expect_struck(1);
    }
    // Two passes of three requests, rate set and read, volume maximum and minimum, sound on.
    EXPECT_EQ(vital, 11u);
    EXPECT_GT(sequence.size(), vital + 5) << "what a start tells besides";
    expect_recovery();
}

TEST_F(Faults, ShortProbeAnswer) {
    constexpr int kGetCur = 0x81;
    constexpr int kGetMin = 0x82;
    constexpr int kGetMax = 0x83;
    const std::pair<int, int> answers[] = {
        {kGetCur, 0}, {kGetCur, 4}, {kGetCur, 25}, {kGetMin, 25}, {kGetMax, 25}};
    for (const auto& [request, length] : answers) {
        SCOPED_TRACE(std::to_string(length) + " bytes for " + std::to_string(request));
        set_rule(
            {{"control", {{"type", 0xA1}, {"request", request}, {"value", 0x100}, {"index", 1}}}},
            {{"short", length}});
        expect_failed_start();
        expect_struck(1);
    }
    expect_recovery();
}

TEST_F(Faults, BulkStallHaltsTheEndpointUntilTheNextStart) {
    start_streaming();
    set_rule({{"transfer", "bulk"}, {"endpoint", 0x81}}, "stall");
    expect_struck(1);
    EXPECT_TRUE(camera_->wait_for_records(CAM_STREAM_PCM, 5)) << "the sound stopped as well";
    EXPECT_EQ(remote_.status().at("halted"), json::array({0x81}));
    EXPECT_EQ(state(), CAM_STATE_PLAYING);
    expect_stop();
    EXPECT_EQ(remote_.status().at("halted"), json::array());
    expect_recovery();
}

TEST_F(Faults, BulkOverflowAndError) {
    for (const char* status : {"overflow", "error"}) {
        SCOPED_TRACE(status);
        start_streaming();
        set_rule({{"transfer", "bulk"}, {"endpoint", 0x81}}, {{"status", status}});
        expect_struck(1);
        EXPECT_TRUE(camera_->wait_for_records(CAM_STREAM_PCM, 5)) << "the sound stopped as well";
        EXPECT_TRUE(camera_->wait_for_records(CAM_STREAM_H264_MAIN, 5))
            << "the other transfers have not gone on";
        EXPECT_EQ(state(), CAM_STATE_PLAYING);
        expect_stop();
    }
    expect_recovery();
}

TEST_F(Faults, PacketsWithErrors) {
    start_streaming();
    constexpr unsigned kTransfers = 50;
    set_rule({{"transfer", "iso"}},
             {{"packets", json::array({{{"index", 0}, {"status", "error"}},
                                       {{"index", 3}, {"length", 0}},
                                       {{"index", 7}, {"length", 5}}})}},
             1, kTransfers);
    expect_struck(kTransfers);
    EXPECT_TRUE(camera_->wait_for_records(CAM_STREAM_PCM, 5));
    EXPECT_EQ(state(), CAM_STATE_PLAYING);
    expect_stop();
    expect_recovery();
}

TEST_F(Faults, LateUnlinks) {
    start_streaming();
    remote_.command("late-unlinks");
    expect_stop();
    expect_recovery();
}

TEST_F(Faults, ServerThatAnswersUnlinksAndNothingElse) {
    start_streaming();
    remote_.command("mute");
    const auto begin = Clock::now();
    // A stop passes over what the camera refuses, and a few unanswered polls are no loss yet.
    expect_stop();
    // Every request of the stop, and of the thread that watches the camera, runs into its time-out
    // of five seconds; they take turns.
    EXPECT_LT(Clock::now() - begin, seconds(40));
    // The end of the object would run into the same time-outs again.
    remote_.command("unplug");
    EXPECT_TRUE(wait_until([] { return product_id() == -1; }, seconds(5)));
    camera_.reset();
    set_up_camera();
    expect_recovery();
}

TEST_F(Faults, ServerThatHangsAndThenCloses) {
    constexpr seconds kHang{3};
    start_streaming();
    const auto begin = Clock::now();
    remote_.command("freeze 3000");
    EXPECT_TRUE(camera_->stop());
    EXPECT_LT(Clock::now() - begin, kHang + seconds(2)) << "two seconds after the close";
    EXPECT_TRUE(wait_until([this] { return state() == CAM_STATE_DISCONNECTED; }, seconds(10)));
    EXPECT_FALSE(camera_->usable());
    camera_.reset();
    set_up_camera();
    expect_recovery();
}

}  // namespace
}  // namespace system_test
