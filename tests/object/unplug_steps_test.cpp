// The cable is pulled at every numbered step of a start and of a stop.
#include <string>

#include "tests/object/CameraTest.h"

namespace test {
namespace {

class UnplugSteps : public CameraTest {
  protected:
    /// Pulls the cable at each of the first `steps` calls of that name, while `act` is done to the
    /// camera that `enter` makes. The event threads and the monitor make such calls, too: a step
    /// that is theirs strikes a little later.
    template <typename Enter, typename Act>
    void PullAtEach(const char* call, size_t steps, Enter enter, Act act) {
        for (size_t nth = 1; nth <= steps && !HasFatalFailure(); ++nth) {
            SCOPED_TRACE(std::string(call) + " " + std::to_string(nth));
            enter();
            virtcam::bus::add_fault({{"on", {{"call", call}}}, {"nth", nth}, {"do", "unplug"}});
            act();
            ExpectTheLossToBeTold();
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
        virtcam::bus::clear_faults();
        virtcam::bus::plug();
    }
};

TEST_F(UnplugSteps, OfAStart) {
    const std::pair<const char*, size_t> steps[] = {{"libusb_control_transfer", 25},
                                                    {"libusb_set_interface_alt_setting", 2},
                                                    {"libusb_alloc_transfer", 5},
                                                    {"libusb_submit_transfer", 5},
                                                    {"libusb_get_max_iso_packet_size", 1}};
    for (const auto& [call, count] : steps) {
        PullAtEach(
            call, count, [this] { Ready(false); }, [this] { camera_->StartRecording(); });
    }
}

TEST_F(UnplugSteps, OfAStop) {
    const std::pair<const char*, size_t> steps[] = {{"libusb_control_transfer", 1},
                                                    {"libusb_cancel_transfer", 5},
                                                    {"libusb_set_interface_alt_setting", 2},
                                                    {"libusb_free_transfer", 5}};
    for (const auto& [call, count] : steps) {
        PullAtEach(
            call, count, [this] { Playing(false); }, [this] { camera_->StopRecording(); });
    }
}

}  // namespace
}  // namespace test
