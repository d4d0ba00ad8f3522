// What the tests of the two engines share: the consumer's side and the meeting of stop and others.
#pragma once

#include <errno.h>

#include <chrono>
#include <future>
#include <memory>
#include <thread>

#include "tests/driver/EngineTest.h"

namespace test {

/// `Engine` shows its inside to the test, `kEndpoint` is the endpoint that it reads.
template <typename Engine, uint8_t kEndpoint>
class StreamTest : public EngineTest {
  protected:
    /// Frames that wait for the consumer.
    uint32_t Queued() { return m_Engine->Queue()->GetCnt(); }
    /// Takes the oldest frame; empty when there is none.
    Bytes Take() {
        unsigned char* data = nullptr;
        unsigned int length = 0;
        if (Queued() == 0 || m_Engine->DequeFrameBuf(&data, &length) == 0) {
            return {};
        }
        Bytes frame(data, data + length);
        m_Engine->QueueFrameBuf();
        return frame;
    }
    static size_t InFlight() { return virtcam::bus::pending(kEndpoint); }

    /// Waits of the queue time out at once.
    static void ExpireWaits() { system_calls().pthread_cond_timedwait = ETIMEDOUT; }

    /// The stop of a running stream ends a read that waits for a frame.
    template <typename Stop>
    void ExpectStopWakesTheConsumer(Stop stop) {
        auto consumer = std::async(std::launch::async, [&] {
            uint8_t byte;
            return m_Engine->ReadFrame(&byte, 1);
        });
        while (m_Engine->Queue()->GetNumWaiters() == 0) {
            std::this_thread::yield();
        }
        stop();
        EXPECT_EQ(consumer.wait_for(std::chrono::milliseconds(300)), std::future_status::ready);
        EXPECT_EQ(consumer.get(), 0u);
    }

    /// The stop of a running stream neither publishes what is half filled nor cancels anything
    /// while a completion is at work elsewhere.
    template <typename Stop>
    void ExpectStopWaitsForACompletion(Stop stop) {
        std::future<void> stopping;
        {
            pMutexLock completion(m_Engine->m_ProducerMtx);
            stopping = std::async(std::launch::async, stop);
            EXPECT_EQ(stopping.wait_for(std::chrono::milliseconds(20)),
                      std::future_status::timeout);
            EXPECT_EQ(Queued(), 0u);
            EXPECT_EQ(CountCalls("libusb_cancel_transfer"), 0u);
        }
        stopping.get();
        EXPECT_EQ(InFlight(), 0u);
    }

    std::unique_ptr<Engine> m_Engine;
};

}  // namespace test
