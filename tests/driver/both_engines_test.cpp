// What the video and the audio engine do alike: opening, stopping, event rounds.
#include <future>

#include "LibusbWrap.h"
#include "tests/driver/AudioEngineTest.h"
#include "tests/driver/VideoEngineTest.h"

namespace test {
namespace {

using namespace std::chrono_literals;

struct EngineNames {
    template <typename Engine>
    static std::string GetName(int) {
        return std::is_same_v<Engine, VideoEngineTest> ? "Video" : "Audio";
    }
};
typedef ::testing::Types<VideoEngineTest, AudioEngineTest> Engines;

// --- open ----------------------------------------------------------------------------------------

template <typename Engine>
class EngineOpen : public Engine {
  protected:
    EngineOpen() { this->Make(); }
};
TYPED_TEST_SUITE(EngineOpen, Engines, EngineNames);

TYPED_TEST(EngineOpen, NoCameraIsLoggedAfterBothIdentitiesWereTried) {
    virtcam::bus::unplug();
    EXPECT_EQ(this->Init(), -1);
    EXPECT_EQ(this->usb().opens(),
              (std::vector<std::pair<int, int>>{{kVendor, kProduct}, {0x114D, 0x8C00}}));
    EXPECT_EQ(this->Log(), (Lines{{4, "AIT Camera Device not found\n"}}));
    EXPECT_EQ(this->m_Engine->m_pDevH, nullptr);
}

TYPED_TEST(EngineOpen, FallbackIdentityIsOpenedAndLogged) {
    this->Forget();
    this->usb().set_product(0x8C00);
    EXPECT_EQ(this->m_Engine->Init(0x1234, 0x5678), 0);
    this->ExpectUnusualRelease();
    EXPECT_EQ(this->usb().opens(),
              (std::vector<std::pair<int, int>>{{0x1234, 0x5678}, {0x114D, 0x8C00}}));
    EXPECT_EQ(this->Log(), (Lines{{4, "Found an AIT device VID=0x114D, PID=0x8C00\r\n"},
                                  this->kStreamingOk,
                                  this->kControlOk}));
}

TYPED_TEST(EngineOpen, UnreadableConfigurationClosesTheDevice) {
    virtcam::bus::add_fault(this->FailCall("libusb_get_configuration", LIBUSB_ERROR_IO));
    EXPECT_EQ(this->Init(), -1);
    EXPECT_EQ(this->Log(), (Lines{{4, "libusb_get_configuration Error!\n"}}));
    EXPECT_EQ(this->m_Engine->m_pDevH, nullptr);
    EXPECT_EQ(this->Calls().back(), "libusb_close");
    EXPECT_EQ(this->CountCalls("libusb_claim_interface"), 0u);
    EXPECT_EQ(this->Init(), 0);
    this->ExpectUnusualRelease();
}

TYPED_TEST(EngineOpen, ALostCameraIsForgottenWhenItIsOpenedAgain) {
    virtcam::bus::add_fault(this->FailCall("libusb_get_configuration", LIBUSB_ERROR_NO_DEVICE));
    EXPECT_EQ(this->Init(), -1);
    EXPECT_EQ(this->Init(), 0);
    this->ExpectUnusualRelease();
    EXPECT_EQ(this->usb().alternate_settings(),
              (std::vector<std::pair<int, int>>{{this->kStreamingInterface, 0}}));
}

TYPED_TEST(EngineOpen, FailedQuestionForADriverCountsAsNone) {
    virtcam::bus::add_fault(
        {{"on", {{"call", "libusb_kernel_driver_active"}}}, {"do", {{"return", -99}}}});
    EXPECT_EQ(this->Init(), 0);
    this->ExpectUnusualRelease();
    EXPECT_EQ(this->CountCalls("libusb_detach_kernel_driver"), 0u);
}

TYPED_TEST(EngineOpen, WaitsForTheDeviceLock) {
    this->Forget();
    std::future<int> init;
    {
        pMutexLock lock(m_libusb_ctrl_lock);
        init =
            std::async(std::launch::async, [&] { return this->m_Engine->Init(kVendor, kProduct); });
        EXPECT_FALSE(
            virtcam::bus::wait_until([] { return !virtcam::bus::call_log().empty(); }, 20ms));
    }
    EXPECT_EQ(init.get(), 0);
    this->ExpectUnusualRelease();
}

/// The last call of an opening is the alternate setting (video) or a claim (audio): the lock is
/// looked at in the former.
TYPED_TEST(EngineOpen, HoldsTheDeviceLockAtTheIdleSetting) {
    bool held = false;
    this->usb().on_alternate_setting([&] { held = !IsFree(m_libusb_ctrl_lock); });
    EXPECT_EQ(this->m_Engine->Init(kVendor, kProduct), 0);
    this->usb().on_alternate_setting(nullptr);
    this->ExpectUnusualRelease();
    EXPECT_TRUE(held);
}

TYPED_TEST(EngineOpen, FreesTheDeviceLockOnEveryWayOut) {
    virtcam::bus::unplug();
    this->Init();
    EXPECT_TRUE(IsFree(m_libusb_ctrl_lock));
    virtcam::bus::plug();
    EXPECT_EQ(this->Init(), 0);
    this->ExpectUnusualRelease();
    EXPECT_TRUE(IsFree(m_libusb_ctrl_lock));
}

// --- start and stop ------------------------------------------------------------------------------

template <typename Engine>
class EngineStream : public Engine {
  protected:
    EngineStream() { this->Open(); }
};
TYPED_TEST_SUITE(EngineStream, Engines, EngineNames);

TYPED_TEST(EngineStream, ShortMemoryReleasesEverythingAndFailsTheStart) {
    int failures = 0;
    for (int nth = 1;; ++nth) {
        this->Forget();
        fail_allocation(nth);
        const int result = this->Start();
        if (allocation_failure_pending()) {
            EXPECT_EQ(result, 0);
            break;
        }
        ++failures;
        EXPECT_TRUE(this->Failed(result)) << nth;
        EXPECT_TRUE(this->usb().submits().empty()) << nth;
        EXPECT_EQ(this->CountCalls("libusb_alloc_transfer"),
                  this->CountCalls("libusb_free_transfer"));
        this->ExpectIdle();
        fail_allocation(0);
    }
    EXPECT_EQ(failures, this->kAllocations);
}

TYPED_TEST(EngineStream, StopWakesABlockedConsumerAndWaitsUntilItHasLeft) {
    ASSERT_EQ(this->Start(), 0);
    system_calls().endless_timed_waits = true;
    auto consumer = std::async(std::launch::async, [&] {
        uint8_t byte;
        return this->m_Engine->ReadFrame(&byte, 1);
    });
    auto* queue = this->m_Engine->Queue();
    while (queue->GetNumWaiters() == 0) {
        std::this_thread::yield();
    }
    this->Stop();
    const bool left = LogRecorder::instance().count_containing("A consumer does not leave") == 0;
    EXPECT_TRUE(left);
    if (!left) {
        queue->WakeWait();
    }
    EXPECT_EQ(consumer.get(), 0u);
}

/// While a completion is at work elsewhere, the stop neither publishes what is half filled nor
/// cancels anything.
TYPED_TEST(EngineStream, StopWaitsForACompletionOfAnotherThread) {
    ASSERT_EQ(this->Start(), 0);
    this->Forget();
    std::future<int> stop;
    {
        pFastMutexLock completion(this->m_Engine->m_ProducerMtx);
        stop = std::async(std::launch::async, [&] { return this->Stop(); });
        EXPECT_EQ(stop.wait_for(20ms), std::future_status::timeout);
        EXPECT_EQ(this->Queued(), 0u);
        EXPECT_EQ(this->CountCalls("libusb_cancel_transfer"), 0u);
    }
    EXPECT_EQ(stop.get(), 0);
    EXPECT_EQ(this->InFlight(), 0u);
}

TYPED_TEST(EngineStream, StopWaitsForTheTransferLock) {
    ASSERT_EQ(this->Start(), 0);
    this->Forget();
    std::future<int> stop;
    {
        pMutexLock lock(this->m_Engine->m_TransferMtx);
        stop = std::async(std::launch::async, [&] { return this->Stop(); });
        EXPECT_EQ(stop.wait_for(20ms), std::future_status::timeout);
        EXPECT_NE(this->m_Engine->Queue(), nullptr);
        EXPECT_EQ(this->CountCalls("libusb_cancel_transfer"), 0u);
    }
    EXPECT_EQ(stop.get(), 0);
    EXPECT_EQ(this->m_Engine->Queue(), nullptr);
    EXPECT_EQ(this->CountCalls("libusb_cancel_transfer"), this->kTransfers);
}

TYPED_TEST(EngineStream, TransferLockIsFreeDuringTheSleepOfTheStop) {
    ASSERT_EQ(this->Start(), 0);
    bool free = false;
    this->clock().on_sleep([&](const SleepCall& call) {
        if (call.duration == this->kSleepOfTheStop) {
            free = IsFree(this->m_Engine->m_TransferMtx);
        }
    });
    this->Stop();
    EXPECT_TRUE(free);
}

TYPED_TEST(EngineStream, StartAndStopManyTimes) {
    for (int i = 0; i < 50; ++i) {
        ASSERT_EQ(this->Start(), 0);
        this->DeliverFrame(Pattern(8));
        EXPECT_EQ(this->Take(), Pattern(8));
        ASSERT_EQ(this->Stop(), 0);
        this->ExpectIdle();
    }
    EXPECT_TRUE(this->log().texts(1).empty());
}

// --- event rounds --------------------------------------------------------------------------------

TYPED_TEST(EngineStream, EventRoundsLast33MillisecondsAndPauseOnlyWhenIdle) {
    this->Forget();
    this->m_Engine->handle_libusb_event();
    EXPECT_EQ(this->usb().event_timeouts(), (std::vector<long>{33000}));
    EXPECT_EQ(this->Sleeps(500us), 1u);
    ASSERT_EQ(this->Start(), 0);
    this->Forget();
    this->Push(Pattern(4));
    this->m_Engine->handle_libusb_event();
    EXPECT_EQ(this->usb().event_timeouts(), (std::vector<long>{33000}));
    EXPECT_TRUE(this->clock().sleeps().empty());
}

TYPED_TEST(EngineStream, EventRoundHoldsTheTransferLock) {
    this->Forget();
    std::future<void> round;
    {
        pMutexLock lock(this->m_Engine->m_TransferMtx);
        round = std::async(std::launch::async, [&] { this->m_Engine->handle_libusb_event(); });
        EXPECT_EQ(round.wait_for(20ms), std::future_status::timeout);
        EXPECT_TRUE(this->usb().event_timeouts().empty());
    }
    round.get();
    EXPECT_EQ(this->usb().event_timeouts().size(), 1u);
}

TYPED_TEST(EngineStream, CompletionHoldsTheProducerLock) {
    ASSERT_EQ(this->Start(), 0);
    this->Push(Pattern(4));
    this->Forget();
    std::future<void> round;
    {
        pFastMutexLock lock(this->m_Engine->m_ProducerMtx);
        round = std::async(std::launch::async, [&] { this->m_Engine->handle_libusb_event(); });
        EXPECT_EQ(round.wait_for(20ms), std::future_status::timeout);
        EXPECT_TRUE(this->usb().submits().empty());
    }
    round.get();
    EXPECT_EQ(this->usb().submits().size(), 1u);
}

}  // namespace
}  // namespace test
