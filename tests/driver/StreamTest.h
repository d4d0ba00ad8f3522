// What the tests of the two engines share.
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
    void Make() { m_Engine = std::make_unique<Engine>(); }
    int Init() {
        Forget();
        return m_Engine->Init(kVendor, kProduct);
    }
    /// Nothing of a stream is left.
    void ExpectIdle() {
        EXPECT_FALSE(m_Engine->IsStreaming);
        EXPECT_EQ(m_Engine->Queue(), nullptr);
        EXPECT_EQ(InFlight(), 0u);
    }

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

    std::unique_ptr<Engine> m_Engine;
};

}  // namespace test
