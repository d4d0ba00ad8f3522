// The cable is pulled at every moment that differs, put back, and a new object runs again.
#include <atomic>
#include <thread>
#include <vector>

#include "tests/system/plugin_camera.h"
#include "tests/system/process_leavings.h"
#include "tests/system/system_test.h"
#include "tests/system/usb_tree.h"

namespace system_test {
namespace {

using nlohmann::json;
using std::chrono::seconds;

/// Rule that pulls the cable at a request.
json pull_at(const json& on, unsigned nth = 1) {
    return json::array({{{"on", on}, {"nth", nth}, {"do", "unplug"}}});
}

constexpr char kCommit[] =
    R"({"control": {"type": 33, "request": 1, "value": 512, "index": 1}})";  // SET_CUR(COMMIT)

class Unplug : public SystemTest {
  protected:
    void SetUp() override {
        SystemTest::SetUp();
        plugin();  // what loading it starts belongs to no object
        threads_ = thread_count();
    }

    /// The object that lost its camera has freed everything; so does a new one, which loads and
    /// runs the camera that was put back.
    void expect_freed_then_replug_and_run() {
        expect_freed();
        power_on_for_plugin();
        {
            PluginCamera camera;
            ASSERT_TRUE(camera.init()) << remote_.last_commands();
            ASSERT_TRUE(camera.start());
            EXPECT_TRUE(camera.streams());
            EXPECT_TRUE(camera.stop());
        }
        expect_freed();
    }

    void expect_freed() {
        EXPECT_TRUE(wait_until([this] { return thread_count() == threads_; }, seconds(5)))
            << thread_count() << " threads, " << threads_ << " before the object";
        EXPECT_EQ(open_usb_devices(), handles_left_open());
    }

    /// The rule that pulls the cable has done so.
    void expect_pulled() {
        EXPECT_EQ(remote_.strikes(), std::vector{1u});
        EXPECT_TRUE(wait_until(gone, seconds(5)));
    }

    static bool gone() { return product_id() == -1; }

    /// The object is told that there is no usable camera.
    static void expect_refusal_told(PluginCamera& camera) {
        ASSERT_TRUE(camera.wait_for_report());
        EXPECT_FALSE(camera.usable());
        EXPECT_EQ(camera->GetState(), CAM_STATE_DISCONNECTED);
    }

    /// The object is told that a usable camera has gone.
    static void expect_loss_told(PluginCamera& camera) {
        EXPECT_TRUE(
            wait_until([&] { return camera.reports() > 0 && !camera.usable(); }, seconds(20)));
        EXPECT_EQ(camera->GetState(), CAM_STATE_DISCONNECTED);
    }

  private:
    size_t threads_ = 0;
};

TEST_F(Unplug, WhileSearching) {
    {
        PluginCamera camera;
        camera.begin_init();  // finds nothing at first
        power_on({{"boot_code", "newer"}});
        remote_.command("unplug");
        // The kernel may be asking for its descriptors just now: such a request takes five seconds
        // to fail, and only then is the departure noticed.
        ASSERT_TRUE(wait_until(gone, seconds(15)));
        expect_refusal_told(camera);
    }
    expect_freed_then_replug_and_run();
}

TEST_F(Unplug, WhileDownloading) {
    power_on({{"boot_code", "newer"}}, pull_at({{"transfer", "bulk"}, {"endpoint", 1}}));
    {
        PluginCamera camera;
        camera.begin_init();
        expect_refusal_told(camera);
        expect_pulled();
    }
    expect_freed_then_replug_and_run();
}

TEST_F(Unplug, WhileWaitingForReEnumeration) {
    power_on({{"boot_code", "newer"}, {"returns", false}});
    {
        PluginCamera camera;
        camera.begin_init();
        ASSERT_TRUE(wait_until(gone, seconds(40))) << "the burn has not restarted the camera";
        remote_.command("unplug");
        expect_refusal_told(camera);
    }
    expect_freed_then_replug_and_run();
}

TEST_F(Unplug, WhileIdle) {
    power_on_for_plugin();
    {
        PluginCamera camera;
        ASSERT_TRUE(camera.init()) << remote_.last_commands();
        remote_.command("unplug");
        expect_loss_told(camera);
        EXPECT_FALSE(camera.set(CAM_PROPERTY_BRIGHTNESS, 10));
        EXPECT_TRUE(camera.start()) << "a start of what is not ready is passed over";
        EXPECT_EQ(camera->GetState(), CAM_STATE_DISCONNECTED);
    }
    expect_freed_then_replug_and_run();
}

TEST_F(Unplug, WhileStarting) {
    power_on_for_plugin(pull_at(json::parse(kCommit)));
    {
        PluginCamera camera;
        ASSERT_TRUE(camera.init()) << remote_.last_commands();
        EXPECT_FALSE(camera.start());
        expect_loss_told(camera);
        expect_pulled();
        EXPECT_EQ(camera.records(CAM_STREAM_H264_MAIN).count(), 0u);
    }
    expect_freed_then_replug_and_run();
}

TEST_F(Unplug, WhileStreaming) {
    power_on_for_plugin();
    {
        PluginCamera camera;
        ASSERT_TRUE(camera.init()) << remote_.last_commands();
        ASSERT_TRUE(camera.start());
        ASSERT_TRUE(camera.streams());
        remote_.command("unplug");
        expect_loss_told(camera);
        const size_t seen = camera.records(CAM_STREAM_H264_MAIN).count();
        EXPECT_FALSE(camera.wait_for_records(CAM_STREAM_H264_MAIN, 1, seconds(1))) << seen;
    }
    expect_freed_then_replug_and_run();
}

TEST_F(Unplug, WhileStopping) {
    power_on_for_plugin();
    {
        PluginCamera camera;
        ASSERT_TRUE(camera.init()) << remote_.last_commands();
        ASSERT_TRUE(camera.start());
        ASSERT_TRUE(camera.streams());
        // SET_INTERFACE(3, 0) ends the sound: the stop has begun when it comes.
        remote_.command(R"(fault {"on": {"control": {"type": 1, "request": 11, "value": 0,)"
                        R"( "index": 3}}, "nth": 1, "do": "unplug"})");
        EXPECT_TRUE(camera.stop());
        expect_loss_told(camera);
        expect_pulled();
    }
    expect_freed_then_replug_and_run();
}

TEST_F(Unplug, WhileInAControlTransfer) {
    power_on_for_plugin();
    {
        PluginCamera camera;
        ASSERT_TRUE(camera.init()) << remote_.last_commands();
        // Requests to the processing unit get no answer: the call waits when the cable goes.
        remote_.command(R"(fault {"on": {"control": {"index": 768}}, "do": "timeout"})");
        std::atomic<bool> returned{false};
        bool answer = true;
        std::thread caller([&] {
            answer = camera.set(CAM_PROPERTY_BRIGHTNESS, 10);
            returned = true;
        });
        EXPECT_FALSE(wait_until([&] { return returned.load(); }, std::chrono::milliseconds(500)));
        remote_.command("unplug");
        EXPECT_TRUE(wait_until([&] { return returned.load(); }, seconds(3)));
        caller.join();
        EXPECT_FALSE(answer);
        EXPECT_EQ(remote_.strikes(), std::vector{1u});
        expect_loss_told(camera);
    }
    expect_freed_then_replug_and_run();
}

}  // namespace
}  // namespace system_test
