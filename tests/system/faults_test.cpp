// Scripted failures, as they come over a real wire. What each leaves behind must not matter: the
// stop returns, and the next start streams.
#include <set>
#include <thread>

#include "tests/system/plugin_camera.h"
#include "tests/system/system_test.h"
#include "tests/system/usb_tree.h"

namespace systemtest {
namespace {

using nlohmann::json;
using std::chrono::seconds;
using Clock = std::chrono::steady_clock;

/// One object for all failures of a scenario: it must outlive them.
class Faults : public SystemTest {
  protected:
    void SetUp() override {
        SystemTest::SetUp();
        power_on_running();
        camera_ = std::make_unique<PluginCamera>();
        ASSERT_TRUE(camera_->init());
    }

    void add_rule(const json& on, const json& action) {
        remote_.command("fault " + json{{"on", on}, {"nth", 1}, {"do", action}}.dump());
    }

    void expect_recovery() {
        remote_.command("no-faults");
        ASSERT_TRUE(camera_->start());
        EXPECT_TRUE(camera_->streams());
        EXPECT_TRUE(camera_->stop());
    }

    /// Class and vendor requests of one good start, each once, and the choice of the interfaces.
    std::vector<json> start_sequence() {
        const size_t before = remote_.status().at("commands").size();
        EXPECT_TRUE(camera_->start());
        const json commands = remote_.status().at("commands");
        EXPECT_TRUE(camera_->stop());
        std::vector<json> sequence;
        std::set<json> seen;
        // SET_INTERFACE is not among the camera's commands.
        for (const int interface : {1, 3}) {
            sequence.push_back({{"type", 1}, {"request", 11}, {"index", interface}});
        }
        for (size_t i = before; i < commands.size(); ++i) {
            const json& each = commands[i];
            const json selector{{"type", each.at("request_type")},
                                {"request", each.at("request")},
                                {"value", each.at("value")},
                                {"index", each.at("index")}};
            if (seen.insert(selector).second) {
                sequence.push_back(selector);
            }
        }
        return sequence;
    }

    std::unique_ptr<PluginCamera> camera_;
};

TEST_F(Faults, StallOfEachRequestOfTheStart) {
    const std::vector<json> sequence = start_sequence();
    EXPECT_GT(sequence.size(), 5u);
    for (const json& request : sequence) {
        SCOPED_TRACE(request.dump());
        add_rule({{"control", request}}, "stall");
        camera_->start();
        camera_->stop();
        remote_.command("no-faults");
    }
    expect_recovery();
}

TEST_F(Faults, ShortProbeAnswer) {
    for (const int length : {0, 4, 25}) {
        SCOPED_TRACE(length);
        add_rule({{"control", {{"type", 0xA1}, {"request", 0x81}, {"value", 0x100}}}},
                 {{"short", length}});
        camera_->start();
        camera_->stop();
        remote_.command("no-faults");
    }
    expect_recovery();
}

TEST_F(Faults, BulkStallAndOverflow) {
    for (const char* status : {"stall", "overflow", "error"}) {
        SCOPED_TRACE(status);
        ASSERT_TRUE(camera_->start());
        ASSERT_TRUE(camera_->streams());
        add_rule({{"transfer", "bulk"}, {"endpoint", 0x81}}, {{"status", status}});
        EXPECT_TRUE(camera_->wait_for_records(CAM_STREAM_PCM, 5)) << "the sound stopped as well";
        camera_->stop();
        remote_.command("no-faults");
    }
    expect_recovery();
}

TEST_F(Faults, PacketsWithErrors) {
    ASSERT_TRUE(camera_->start());
    ASSERT_TRUE(camera_->streams());
    remote_.command(
        R"(fault {"on": {"transfer": "iso"}, "count": 50, "do": {"packets": [)"
        R"({"index": 0, "status": "error"}, {"index": 3, "length": 0}, {"index": 7, "length": 5}]}})");
    EXPECT_TRUE(camera_->wait_for_records(CAM_STREAM_PCM, 30));
    EXPECT_TRUE(camera_->stop());
    expect_recovery();
}

TEST_F(Faults, LateUnlinks) {
    ASSERT_TRUE(camera_->start());
    ASSERT_TRUE(camera_->streams());
    remote_.command("late-unlinks");
    EXPECT_TRUE(camera_->stop());
    expect_recovery();
}

TEST_F(Faults, ServerThatAnswersUnlinksAndNothingElse) {
    ASSERT_TRUE(camera_->start());
    ASSERT_TRUE(camera_->streams());
    remote_.command("mute");
    const auto begin = Clock::now();
    camera_->stop();
    // Every request of the stop, and of the thread that watches the camera, runs into its time-out
    // of five seconds; they take turns.
    EXPECT_LT(Clock::now() - begin, seconds(40));
    camera_.reset();
    power_on_running();
    camera_ = std::make_unique<PluginCamera>();
    ASSERT_TRUE(camera_->init());
    expect_recovery();
}

TEST_F(Faults, ServerThatHangsAndThenCloses) {
    constexpr seconds kHang{3};
    ASSERT_TRUE(camera_->start());
    ASSERT_TRUE(camera_->streams());
    const auto begin = Clock::now();
    remote_.command("freeze 3000");
    camera_->stop();
    EXPECT_LT(Clock::now() - begin, kHang + seconds(2)) << "two seconds after the close";
    camera_.reset();
    power_on_running();
    camera_ = std::make_unique<PluginCamera>();
    ASSERT_TRUE(camera_->init());
    expect_recovery();
}

}  // namespace
}  // namespace systemtest
