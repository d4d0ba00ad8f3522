// When and how completions reach the program.
#include <algorithm>
#include <atomic>
#include <thread>

#include "tests/support/broken_encoder.h"
#include "tests/virtbus/bus_fixture.h"

namespace virtcam::bus::test {
namespace {

class Transfers : public OpenFixture {
  protected:
    Transfers() { virtcam::bus::script_stream(true); }
};

TEST_F(Transfers, CompleteInsideEventHandlingOnly) {
    Transfer transfer = Transfer::bulk(handle_);
    ASSERT_EQ(transfer.submit(), 0);
    virtcam::bus::push_bulk(TransferStatus::kCompleted, {1, 2, 3});
    ASSERT_TRUE(virtcam::bus::wait_until([] { return virtcam::bus::pending(kVideo) == 0; }, 1s));
    EXPECT_EQ(transfer.completions(), 0);
    EXPECT_EQ(transfer.buffer()[0], 0) << "data arrives with the completion, not before";
    handle_events(context_);
    EXPECT_EQ(transfer.completions(), 1);
    EXPECT_EQ(transfer->actual_length, 3);
    EXPECT_EQ(transfer.buffer()[2], 3);
}

TEST_F(Transfers, SynchronousCallDeliversOthersOfItsContext) {
    Transfer transfer = Transfer::bulk(handle_);
    ASSERT_EQ(transfer.submit(), 0);
    virtcam::bus::push_bulk(TransferStatus::kCompleted, {7});
    std::array<uint8_t, 8> reply{};
    EXPECT_EQ(read_version(handle_, reply), 8);
    EXPECT_EQ(transfer.completions(), 1);
}

TEST_F(Transfers, SynchronousCallLeavesOtherContextsAlone) {
    Transfer transfer = Transfer::bulk(handle_);
    ASSERT_EQ(transfer.submit(), 0);
    virtcam::bus::push_bulk(TransferStatus::kCompleted, {7});
    libusb_context* other = make_context();
    libusb_device_handle* second = open_camera(other);
    std::array<uint8_t, 8> reply{};
    EXPECT_EQ(read_version(second, reply), 8);
    EXPECT_EQ(transfer.completions(), 0);
    libusb_close(second);
    libusb_exit(other);
    handle_events(context_);
    EXPECT_EQ(transfer.completions(), 1);
}

TEST_F(Transfers, CancellationIsAsynchronous) {
    Transfer transfer = Transfer::bulk(handle_);
    EXPECT_EQ(transfer.cancel(), LIBUSB_ERROR_NOT_FOUND) << "not submitted";
    ASSERT_EQ(transfer.submit(), 0);
    EXPECT_EQ(transfer.cancel(), 0);
    EXPECT_EQ(transfer.completions(), 0);
    EXPECT_EQ(transfer.cancel(), LIBUSB_ERROR_NOT_FOUND) << "cancelled already";
    handle_events(context_);
    EXPECT_EQ(transfer.completions(), 1);
    EXPECT_EQ(transfer.status(), LIBUSB_TRANSFER_CANCELLED);
}

TEST_F(Transfers, CancellationComesTooLateForAFinishedTransfer) {
    Transfer transfer = Transfer::bulk(handle_);
    ASSERT_EQ(transfer.submit(), 0);
    virtcam::bus::push_bulk(TransferStatus::kCompleted, {7});
    EXPECT_EQ(transfer.cancel(), LIBUSB_ERROR_NOT_FOUND);
    handle_events(context_);
    EXPECT_EQ(transfer.status(), LIBUSB_TRANSFER_COMPLETED);
}

TEST_F(Transfers, EndInOrderOnOneEndpoint) {
    std::vector<int> order;
    std::vector<Transfer> transfers;
    for (int i = 0; i < 3; ++i) {
        transfers.push_back(Transfer::bulk(handle_));
        transfers.back().on_completion([&order, i](libusb_transfer*) { order.push_back(i); });
        ASSERT_EQ(transfers.back().submit(), 0);
    }
    EXPECT_EQ(virtcam::bus::pending(kVideo), 3U);
    for (uint8_t i = 0; i < 3; ++i) {
        virtcam::bus::push_bulk(TransferStatus::kCompleted, {i});
    }
    handle_events(context_);
    EXPECT_EQ(order, (std::vector<int>{0, 1, 2}));
    EXPECT_EQ(transfers[2].buffer()[0], 2);
}

TEST_F(Transfers, PushedBeforeSubmissionWaits) {
    virtcam::bus::push_bulk(TransferStatus::kStall, {});
    Transfer transfer = Transfer::bulk(handle_);
    ASSERT_EQ(transfer.submit(), 0);
    EXPECT_EQ(virtcam::bus::pending(kVideo), 0U);
    handle_events(context_);
    EXPECT_EQ(transfer.status(), LIBUSB_TRANSFER_STALL);
}

TEST_F(Transfers, TimeOutByDueTime) {
    std::vector<int> order;
    Transfer slow = Transfer::bulk(handle_, 512, 60);
    Transfer fast = Transfer::bulk(handle_, 512, 20);
    slow.on_completion([&](libusb_transfer*) { order.push_back(60); });
    fast.on_completion([&](libusb_transfer*) { order.push_back(20); });
    const auto start = std::chrono::steady_clock::now();
    ASSERT_EQ(slow.submit(), 0);
    ASSERT_EQ(fast.submit(), 0);
    EXPECT_EQ(virtcam::bus::last_timeout(kVideo), 20U);
    timeval next{};
    EXPECT_EQ(libusb_get_next_timeout(context_, &next), 1);
    EXPECT_LE(next.tv_usec, 20'000);
    ASSERT_TRUE(handle_events_until(context_, [&] { return order.size() == 2; }));
    EXPECT_GE(std::chrono::steady_clock::now() - start, 60ms);
    EXPECT_EQ(order, (std::vector<int>{20, 60}));
    EXPECT_EQ(slow.status(), LIBUSB_TRANSFER_TIMED_OUT);
}

TEST_F(Transfers, EventWaitEndsWithTheTimeGiven) {
    const auto start = std::chrono::steady_clock::now();
    timeval wait{0, 30'000};
    EXPECT_EQ(libusb_handle_events_timeout(context_, &wait), 0);
    EXPECT_GE(std::chrono::steady_clock::now() - start, 30ms);
    timeval wrong{0, -1};
    EXPECT_EQ(libusb_handle_events_timeout(context_, &wrong), LIBUSB_ERROR_INVALID_PARAM);
}

TEST_F(Transfers, CompletionEndsTheWait) {
    Transfer transfer = Transfer::bulk(handle_);
    ASSERT_EQ(transfer.submit(), 0);
    std::thread device([] { virtcam::bus::push_bulk(TransferStatus::kCompleted, {1}); });
    EXPECT_EQ(libusb_handle_events(context_), 0);  // waits for up to a minute
    device.join();
    EXPECT_EQ(transfer.completions(), 1);
}

TEST_F(Transfers, InterruptEndsTheWait) {
    std::thread other([&] { libusb_interrupt_event_handler(context_); });
    EXPECT_EQ(libusb_handle_events(context_), 0);
    other.join();
}

TEST_F(Transfers, ResubmissionFromTheCallback) {
    Transfer transfer = Transfer::bulk(handle_);
    transfer.on_completion([](libusb_transfer* done) {
        if (done->actual_length != 0) {
            EXPECT_EQ(libusb_submit_transfer(done), 0);
        }
    });
    ASSERT_EQ(transfer.submit(), 0);
    for (int i = 0; i < 3; ++i) {
        virtcam::bus::push_bulk(TransferStatus::kCompleted, {1});
    }
    handle_events(context_);
    EXPECT_EQ(transfer.completions(), 1) << "one round hands over what was ready when it began";
    virtcam::bus::push_bulk(TransferStatus::kCompleted, {});
    EXPECT_TRUE(handle_events_until(context_, [&] { return transfer.completions() == 4; }));
}

TEST_F(Transfers, FreedInTheCallback) {
    Transfer transfer = Transfer::bulk(handle_);
    transfer->flags = LIBUSB_TRANSFER_FREE_TRANSFER;
    ASSERT_EQ(transfer.submit(), 0);
    transfer.release();
    virtcam::bus::push_bulk(TransferStatus::kCompleted, {1});
    handle_events(context_);
    EXPECT_EQ(transfer.completions(), 1);
    const auto leaks = virtcam::bus::leaks();
    EXPECT_TRUE(std::none_of(leaks.begin(), leaks.end(),
                             [](const auto& leak) { return leak.code == "leaked_transfer"; }));
}

TEST_F(Transfers, ShortIsAnErrorWhenAskedFor) {
    Transfer transfer = Transfer::bulk(handle_);
    transfer->flags = LIBUSB_TRANSFER_SHORT_NOT_OK;
    ASSERT_EQ(transfer.submit(), 0);
    virtcam::bus::push_bulk(TransferStatus::kCompleted, {1});
    handle_events(context_);
    EXPECT_EQ(transfer.status(), LIBUSB_TRANSFER_ERROR);
}

TEST_F(Transfers, CountCanLieOnPurpose) {
    Transfer transfer = Transfer::bulk(handle_);
    ASSERT_EQ(transfer.submit(), 0);
    virtcam::bus::push_bulk(TransferStatus::kCompleted, std::vector<uint8_t>(600, 5), 1);
    handle_events(context_);
    EXPECT_EQ(transfer->actual_length, 1);
    ASSERT_EQ(transfer.submit(), 0);
    virtcam::bus::push_bulk(TransferStatus::kCompleted, std::vector<uint8_t>(600, 5));
    handle_events(context_);
    EXPECT_EQ(transfer->actual_length, 512) << "never more than the room, if nothing is forced";
}

TEST_F(Transfers, IsoPacketsLieAtTheirOffsets) {
    Transfer transfer = Transfer::iso(handle_, 3);
    ASSERT_EQ(transfer.submit(), 0);
    virtcam::bus::push_iso({{TransferStatus::kCompleted, {1, 2}, {}},
                            {TransferStatus::kError, {}, {}},
                            {TransferStatus::kCompleted, {3}, 77}});
    handle_events(context_);
    EXPECT_EQ(transfer.status(), LIBUSB_TRANSFER_COMPLETED);
    EXPECT_EQ(transfer->iso_packet_desc[0].actual_length, 2U);
    EXPECT_EQ(transfer->iso_packet_desc[1].status, LIBUSB_TRANSFER_ERROR);
    EXPECT_EQ(transfer->iso_packet_desc[2].actual_length, 77U);
    EXPECT_EQ(transfer.buffer()[1], 2);
    EXPECT_EQ(transfer.buffer()[200], 3);
}

TEST_F(Transfers, AsynchronousControl) {
    Transfer transfer = Transfer::control(handle_, 0x80, 0x06, 0x0100, 0, 18);
    ASSERT_EQ(transfer.submit(), 0);
    EXPECT_EQ(transfer.completions(), 0);
    handle_events(context_);
    EXPECT_EQ(transfer->actual_length, 18);
    EXPECT_EQ(libusb_control_transfer_get_data(transfer.get())[1], LIBUSB_DT_DEVICE);
}

TEST_F(Transfers, HeldCompletionsKeepTheirOrder) {
    Transfer transfer = Transfer::bulk(handle_);
    Transfer control = Transfer::control(handle_, 0x80, 0x06, 0x0100, 0, 18);
    virtcam::bus::hold_completions(0);
    ASSERT_EQ(control.submit(), 0);
    ASSERT_EQ(transfer.submit(), 0);
    virtcam::bus::push_bulk(TransferStatus::kCompleted, {1});
    handle_events(context_);
    EXPECT_EQ(transfer.completions(), 1);
    EXPECT_EQ(control.completions(), 0);
    virtcam::bus::release_completions(0);
    handle_events(context_);
    EXPECT_EQ(control.completions(), 1);
}

TEST_F(Transfers, UnplugEndsAllWithNoDevice) {
    Transfer video = Transfer::bulk(handle_);
    Transfer audio = Transfer::iso(handle_);
    ASSERT_EQ(video.submit(), 0);
    ASSERT_EQ(audio.submit(), 0);
    virtcam::bus::unplug();
    EXPECT_EQ(video.cancel(), LIBUSB_ERROR_NOT_FOUND);
    EXPECT_EQ(video.completions(), 0);
    handle_events(context_);
    EXPECT_EQ(video.status(), LIBUSB_TRANSFER_NO_DEVICE);
    EXPECT_EQ(audio.status(), LIBUSB_TRANSFER_NO_DEVICE);
    EXPECT_EQ(video.submit(), LIBUSB_ERROR_NO_DEVICE);
}

TEST_F(OpenFixture, SlowPictureHoldsNoDepartureUp) {
    const ::test::HeldEncoder picture;
    start_video();
    ASSERT_TRUE(picture.is_reached());
    Transfer transfer = Transfer::bulk(handle_);
    ASSERT_EQ(transfer.submit(), 0);
    for (const uint8_t selector : {0, 1}) {  // burns nothing, and restarts
        std::array<uint8_t, 8> command{1, selector, 3};
        ASSERT_EQ(libusb_control_transfer(handle_, 0x20, 0x01, 0x0400, 0x0600, command.data(),
                                          command.size(), 1000),
                  8);
    }
    ASSERT_TRUE(handle_events_until(context_, [&] { return transfer.completions() == 1; }));
    EXPECT_EQ(transfer.status(), LIBUSB_TRANSFER_NO_DEVICE);
}

TEST_F(Transfers, UnplugDuringASynchronousCall) {
    virtcam::bus::add_fault({{"on", {{"control", {{"request", 0x81}}}}}, {"do", "timeout"}});
    std::thread cable([] {
        EXPECT_TRUE(virtcam::bus::wait_until([] { return virtcam::bus::pending(0) == 1; }, 2s));
        virtcam::bus::unplug();
    });
    std::array<uint8_t, 8> reply{};
    EXPECT_EQ(read_version(handle_, reply), LIBUSB_ERROR_NO_DEVICE);
    cable.join();
}

TEST_F(Transfers, CloseWaitsForARunningCallback) {
    libusb_context* other = make_context();
    libusb_device_handle* second = open_camera(other);
    std::atomic<bool> inside{false};
    std::atomic<bool> left{false};
    Transfer transfer = Transfer::control(second, 0x80, 0x06, 0x0100, 0, 18);
    transfer.on_completion([&](libusb_transfer*) {
        inside = true;
        virtcam::bus::wait_until([] { return false; }, 30ms);
        left = true;
    });
    ASSERT_EQ(transfer.submit(), 0);
    std::thread events([&] { libusb_handle_events(other); });
    ASSERT_TRUE(virtcam::bus::wait_until([&] { return inside.load(); }, 2s));
    libusb_close(second);
    EXPECT_TRUE(left);
    events.join();
    libusb_exit(other);
}

TEST_F(Transfers, CloseFromTheCallback) {
    libusb_context* other = make_context();
    libusb_device_handle* second = open_camera(other);
    Transfer transfer = Transfer::control(second, 0x80, 0x06, 0x0100, 0, 18);
    transfer.on_completion([&](libusb_transfer*) { libusb_close(second); });
    ASSERT_EQ(transfer.submit(), 0);
    handle_events(other);
    EXPECT_EQ(transfer.completions(), 1);
    libusb_exit(other);
}

TEST_F(Transfers, CompletedFlagEndsTheLoop) {
    int flag = 1;
    EXPECT_EQ(libusb_handle_events_completed(context_, &flag), 0);  // would wait for a minute
}

TEST_F(Transfers, EventLockExcludesOthers) {
    libusb_lock_events(context_);
    EXPECT_EQ(libusb_event_handler_active(context_), 1);
    EXPECT_EQ(libusb_event_handling_ok(context_), 1);
    std::thread other([&] { EXPECT_EQ(libusb_try_lock_events(context_), 1); });
    other.join();
    Transfer transfer = Transfer::bulk(handle_);
    ASSERT_EQ(transfer.submit(), 0);
    virtcam::bus::push_bulk(TransferStatus::kCompleted, {1});
    timeval none{0, 0};
    EXPECT_EQ(libusb_handle_events_locked(context_, &none), 0);
    EXPECT_EQ(transfer.completions(), 1);
    libusb_unlock_events(context_);
    EXPECT_EQ(libusb_event_handler_active(context_), 0);
}

TEST_F(Transfers, WaiterIsWokenByTheHandler) {
    Transfer transfer = Transfer::bulk(handle_);
    ASSERT_EQ(transfer.submit(), 0);
    std::thread handler([&] {
        EXPECT_TRUE(handle_events_until(context_, [&] { return transfer.completions() == 1; }));
    });
    ASSERT_TRUE(
        virtcam::bus::wait_until([&] { return libusb_event_handler_active(context_) == 1; }, 2s));
    // The calling thread cannot handle events itself now, and must come back all the same.
    virtcam::bus::push_bulk(TransferStatus::kCompleted, {1});
    std::array<uint8_t, 8> reply{};
    EXPECT_EQ(read_version(handle_, reply), 8);
    handler.join();
}

TEST_F(Transfers, ManyThreadsAndContextsAtOnce) {
    constexpr int kThreads = 4;
    std::vector<std::thread> threads;
    std::atomic<int> answered{0};
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&, i] {
            libusb_context* own = i % 2 == 0 ? make_context() : nullptr;
            libusb_device_handle* handle = own != nullptr ? open_camera(own) : handle_;
            for (int round = 0; round < 50; ++round) {
                std::array<uint8_t, 18> reply{};
                answered += libusb_control_transfer(handle, 0x80, 0x06, 0x0100, 0, reply.data(),
                                                    reply.size(), 1000) == 18;
            }
            if (own != nullptr) {
                libusb_close(handle);
                libusb_exit(own);
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(answered, kThreads * 50);
}

TEST_F(OpenFixture, VideoComesFromTheCamera) {
    start_video();
    Transfer transfer = Transfer::bulk(handle_, 65536);
    int frames = 0;
    transfer.on_completion([&](libusb_transfer* done) {
        frames += done->actual_length >= 2 && (done->buffer[1] & 2) != 0 ? 1 : 0;
        if (frames < 3) {
            EXPECT_EQ(libusb_submit_transfer(done), 0);
        }
    });
    ASSERT_EQ(transfer.submit(), 0);
    EXPECT_TRUE(handle_events_until(context_, [&] { return frames == 3; }));
}

TEST_F(OpenFixture, SoundIsPacedByTheMillisecond) {
    reopen({{"camera", {{"audio_paced", true}}}});
    Transfer first = Transfer::iso(handle_);
    Transfer second = Transfer::iso(handle_);
    int done = 0;
    const auto count = [&](libusb_transfer* transfer) {
        if (++done <= 18) {
            EXPECT_EQ(libusb_submit_transfer(transfer), 0);
        }
    };
    first.on_completion(count);
    second.on_completion(count);
    const auto start = std::chrono::steady_clock::now();
    ASSERT_EQ(first.submit(), 0);
    ASSERT_EQ(second.submit(), 0);
    ASSERT_TRUE(handle_events_until(context_, [&] { return done == 20; }));
    EXPECT_GE(std::chrono::steady_clock::now() - start, 200ms) << "20 transfers of 10 packets";
}

TEST_F(OpenFixture, LateHostLosesNoPackets) {
    reopen({{"camera", {{"audio_paced", true}}}});
    Transfer transfer = Transfer::iso(handle_, 10);
    ASSERT_EQ(transfer.submit(), 0);
    ASSERT_TRUE(handle_events_until(context_, [&] { return transfer.completions() == 1; }));
    virtcam::bus::wait_until([] { return false; },
                             50ms);  // within the 200 ms that count as lateness
    const auto start = std::chrono::steady_clock::now();
    for (int i = 2; i <= 5; ++i) {
        ASSERT_EQ(transfer.submit(), 0);
        ASSERT_TRUE(handle_events_until(context_, [&] { return transfer.completions() == i; }));
    }
    EXPECT_LT(std::chrono::steady_clock::now() - start, 35ms) << "what is overdue comes at once";
}

}  // namespace
}  // namespace virtcam::bus::test
