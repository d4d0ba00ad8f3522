// A host with a good camera in virtual time, brought to a stage of its life.
#pragma once

#include <gtest/gtest.h>

#include <memory>

#include "tests/simulation/camera.h"
#include "tests/simulation/host.h"
#include "tests/support/TvFiles.h"

namespace sim {

using namespace std::chrono_literals;

/// Stages of a camera's life, as host calls find it.
enum Stage { kCreated, kLoading, kReady, kPlaying, kGone, kStages };
constexpr const char* kStageNames[] = {"Created", "Loading", "Ready", "Playing", "Gone"};

/// In which order threads that could all go on do so.
enum Order { kFirst, kInTurn, kOrders };

inline void order_threads(Order order) {
    auto turn = std::make_shared<size_t>(0);
    World::choose_by([=](size_t count) { return order == kFirst ? 0 : ++*turn % count; });
}

inline void write_tv_files() {
    test::RemoveTvFiles();
    test::WriteFile("/mtd_exe/.info", "T-XXX12");
    test::WriteFile("/mtd_rwcommon/lumo/bin/Tarlo_Ext_FW.bin", test::ImageOf(20000));
}

class Life {
  public:
    explicit Life(Stage stage) : camera_(stage == kLoading ? kBootCode : kRunTime), bus_(&camera_) {
        Bus::publish_listing();
        host_ = std::make_unique<Host>();
        enter(stage);
    }
    Host& host() { return *host_; }
    Camera& camera() { return camera_; }

    /// Plugged in again where it was pulled, the object brings its camera up, once more where it
    /// has to, and records.
    void expect_to_record() {
        if (!await_ready()) {
            host_.reset();  // an object that lost its camera stays without
            Bus::plug(&camera_);
            host_ = std::make_unique<Host>();
            ASSERT_TRUE(host_->init());
        }
        Reader pictures(CAM_STREAM_H264_MAIN), sound(CAM_STREAM_PCM);
        host()->RegisterObserver(&pictures);
        host()->RegisterObserver(&sound);
        EXPECT_TRUE(host()->StartRecording());
        EXPECT_TRUE(pass_until([&] { return pictures.records() > 3 && sound.records() > 3; }, 5s));
        EXPECT_TRUE(host()->StopRecording());
        host()->RemoveObserver(&pictures);
        host()->RemoveObserver(&sound);
    }
    /// Destroyed, it leaves neither a thread nor a transfer nor a handle.
    void expect_to_leave_nothing() {
        host_.reset();
        EXPECT_EQ(World::threads(), 1u);
        const Bus::Leavings left = Bus::leavings();
        EXPECT_EQ(left.transfers + left.in_flight, 0u);
        // A lost device's handle that this libusb could not close is left open on purpose.
        EXPECT_LE(left.handles, Bus::changes() > 1 ? 1u : 0u);
    }

  private:
    void enter(Stage stage) {
        if (stage == kLoading) {
            host()->Init(Host::hear, 0);
            pass(200ms);
        } else if (stage != kCreated) {
            ASSERT_TRUE(host_->init());
        }
        if (stage == kPlaying) {
            ASSERT_TRUE(host()->StartRecording());
            pass(200ms);
        } else if (stage == kGone) {
            Bus::unplug();
            ASSERT_TRUE(Host::await_answer(10s));
        }
    }
    bool await_ready() {
        pass(10s);  // a cable that was pulled is noticed, by a loader that has just begun, too
        if (host()->GetState() == CAM_STATE_PLAYING) {
            host()->StopRecording();
        }
        const auto is = [&](CAM_STATE state) { return host()->GetState() == state; };
        if (pass_until([&] { return is(CAM_STATE_READY) || is(CAM_STATE_DISCONNECTED); }, 30s)) {
            return is(CAM_STATE_READY);
        }
        return host_->init();  // nobody has asked for it yet
    }

    Camera camera_;
    const Bus bus_;
    std::unique_ptr<Host> host_;
};

}  // namespace sim
