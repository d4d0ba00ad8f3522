// The cable is pulled at every numbered step of a start and of a stop.
#include <algorithm>

#include "tests/object/CameraTest.h"

namespace test {
namespace {

class UnplugSteps : public CameraTest {
  protected:
    static size_t Made(const std::string& call) {
        const auto log = virtcam::bus::call_log();
        return static_cast<size_t>(std::count_if(
            log.begin(), log.end(), [&](const auto& record) { return record.name == call; }));
    }

    /// Pulls the cable at the n-th call of that name, for every n that `act` reaches; `enter` makes
    /// the camera that it needs. Returns how many there were.
    template <typename Enter, typename Act>
    size_t PullAtEach(const std::string& call, Enter enter, Act act) {
        for (size_t nth = 1;; ++nth) {
            SCOPED_TRACE(call + " " + std::to_string(nth));
            enter();
            virtcam::bus::add_fault({{"on", {{"call", call}}}, {"nth", nth}, {"do", "unplug"}});
            act();
            const bool pulled = Made(call) >= nth;
            virtcam::bus::clear_faults();
            if (!pulled) {
                ExpectUnusualRelease();
                Destroy();
                InitAnswers::instance().Clear();
                virtcam::bus::power_cycle();
                return nth - 1;
            }
            ExpectTheLossToBeTold();
            if (::testing::Test::HasFatalFailure()) {
                return 0;
            }
        }
    }

    /// Told once; nothing starts any more, nothing is left, and the next camera is a fresh one.
    void ExpectTheLossToBeTold() {
        ASSERT_TRUE(InitAnswers::instance().Wait(2)) << log_listing();
        EXPECT_FALSE(InitAnswers::instance().All()[1]);
        EXPECT_EQ(camera_->GetState(), CAM_STATE_DISCONNECTED);
        EXPECT_TRUE(camera_->StartRecording());  // says yes and does nothing
        EXPECT_EQ(camera_->GetState(), CAM_STATE_DISCONNECTED);
        EXPECT_FALSE(camera_->StopRecording());
        Destroy();
        EXPECT_EQ(InitAnswers::instance().All().size(), 2u);
        InitAnswers::instance().Clear();
        // When the stop of the video is the first to notice, its handle cannot be closed.
        if (log().has(1,
                      "The lost device's handle is left open, this libusb cannot close it.\r\n")) {
            ExpectComplaint("libusb_exit: 1 device handle still open");
            ExpectComplaint("a handle of 114d:2066 was never closed");
        }
        virtcam::bus::plug();
    }
};

TEST_F(UnplugSteps, OfAStart) {
    const std::pair<const char*, size_t> steps[] = {{"libusb_control_transfer", 20},
                                                    {"libusb_set_interface_alt_setting", 2},
                                                    {"libusb_alloc_transfer", 5},
                                                    {"libusb_submit_transfer", 5},
                                                    {"libusb_get_max_iso_packet_size", 1}};
    for (const auto& [call, at_least] : steps) {
        EXPECT_GE(PullAtEach(
                      call, [this] { Ready(false); }, [this] { camera_->StartRecording(); }),
                  at_least)
            << call;
    }
}

TEST_F(UnplugSteps, OfAStop) {
    const std::pair<const char*, size_t> steps[] = {{"libusb_control_transfer", 1},
                                                    {"libusb_cancel_transfer", 5},
                                                    {"libusb_set_interface_alt_setting", 2},
                                                    {"libusb_free_transfer", 5}};
    for (const auto& [call, at_least] : steps) {
        EXPECT_GE(PullAtEach(
                      call, [this] { Playing(false); }, [this] { camera_->StopRecording(); }),
                  at_least)
            << call;
    }
}

}  // namespace
}  // namespace test
