// Frame buffers, the queue between producer and consumer, and the producer's holder.
#include <errno.h>

#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <thread>
#include <utility>
#include <vector>

#include "CFrameBuf.h"
#include "CFrameBufferLocker.h"
#include "StaticSyncQueue.h"
#include "tests/support/PluginTest.h"

namespace test {
namespace {

using namespace std::chrono_literals;
constexpr auto kLimit = 10s;

template <int kSlots>
class QueueTest : public PluginTest {
  protected:
    QueueTest() {
        for (int i = 0; i < kSlots; ++i) {
            m_Owned.push_back(std::make_unique<CFrameBuf>(16));
            m_Slots[i] = m_Owned.back().get();
        }
    }

    /// No wait of the queue lasts: each times out at once and is recorded.
    static void ExpireWaits() { system_calls().pthread_cond_timedwait = ETIMEDOUT; }
    void Publish(int count) {
        for (int i = 0; i < count; ++i) {
            ASSERT_NE(m_Queue.GetWritePtr(0), nullptr);
            m_Queue.WriteDone();
        }
    }
    void AwaitWaiter() {
        const auto end = std::chrono::steady_clock::now() + kLimit;
        while (m_Queue.GetNumWaiters() != 1) {
            ASSERT_LT(std::chrono::steady_clock::now(), end);
            std::this_thread::yield();
        }
    }

    /// What a waiting thread got once it was woken: nothing else ends its wait.
    CFrameBuf* Woken(std::future<CFrameBuf*> waiter) {
        if (waiter.wait_for(kLimit) != std::future_status::ready) {
            ADD_FAILURE() << "nobody has woken it";
            m_Queue.WakeWait();
        }
        return waiter.get();
    }

    std::vector<std::unique_ptr<CFrameBuf>> m_Owned;
    CFrameBuf* m_Slots[kSlots] = {};
    StaticSyncQueue<CFrameBuf*> m_Queue{m_Slots, kSlots};
};

class FrameQueue : public QueueTest<5> {};
class SmallFrameQueue : public QueueTest<2> {};
class OneSlotQueue : public QueueTest<1> {};
class FrameBuffer : public PluginTest {};

TEST_F(FrameBuffer, IsEmptyAndZeroedWithSpareBytesBehindItsCapacity) {
    EXPECT_EQ(CFrameBuf::kSpareBytes, 64u);
    CFrameBuf frame(100);
    EXPECT_EQ(frame.len, 0u);
    ASSERT_NE(frame.buf, nullptr);
    for (unsigned int i = 0; i < 100 + CFrameBuf::kSpareBytes; ++i) {
        ASSERT_EQ(frame.buf[i], 0) << i;
    }
}

TEST_F(FrameBuffer, OfNoBytesStillHasItsSpareBytes) {
    CFrameBuf frame(0);
    ASSERT_NE(frame.buf, nullptr);
    EXPECT_EQ(frame.buf[63], 0);
}

TEST_F(FrameQueue, StartsEmpty) {
    EXPECT_EQ(m_Queue.GetCnt(), 0u);
    EXPECT_EQ(m_Queue.GetEmptyCnt(), 5u);
    EXPECT_EQ(m_Queue.GetNumWaiters(), 0);
}

TEST_F(FrameQueue, IncIndexWrapsAtTheLastSlot) {
    int index = 0;
    for (const int expected : {1, 2, 3, 4, 0, 1}) {
        m_Queue.IncIndex(index);
        EXPECT_EQ(index, expected);
    }
    index = 7;
    m_Queue.IncIndex(index);
    EXPECT_EQ(index, 0);
}

TEST_F(FrameQueue, WritePointerStaysUntilItIsPublished) {
    EXPECT_EQ(m_Queue.GetWritePtr(0), m_Slots[0]);
    EXPECT_EQ(m_Queue.GetWritePtr(0), m_Slots[0]);
    EXPECT_EQ(m_Queue.GetCnt(), 0u);
    m_Queue.WriteDone();
    EXPECT_EQ(m_Queue.GetCnt(), 1u);
    EXPECT_EQ(m_Queue.GetEmptyCnt(), 4u);
    EXPECT_EQ(m_Queue.GetWritePtr(0), m_Slots[1]);
}

TEST_F(FrameQueue, ReadPointerStaysUntilItIsReleased) {
    Publish(2);
    EXPECT_EQ(m_Queue.GetReadPtr(), m_Slots[0]);
    EXPECT_EQ(m_Queue.GetReadPtr(), m_Slots[0]);
    EXPECT_EQ(m_Queue.GetCnt(), 2u);
    m_Queue.ReadDone();
    EXPECT_EQ(m_Queue.GetCnt(), 1u);
    EXPECT_EQ(m_Queue.GetReadPtr(), m_Slots[1]);
}

TEST_F(FrameQueue, ElementsGoRoundInOrder) {
    for (int i = 0; i < 13; ++i) {
        EXPECT_EQ(m_Queue.GetWritePtr(0), m_Slots[i % 5]);
        m_Queue.WriteDone();
        EXPECT_EQ(m_Queue.GetReadPtr(), m_Slots[i % 5]);
        m_Queue.ReadDone();
    }
    EXPECT_EQ(m_Queue.GetCnt(), 0u);
}

TEST_F(FrameQueue, FullQueueGivesNoneAndKeepsWhatIsQueuedInOrder) {
    Publish(5);
    EXPECT_EQ(m_Queue.GetEmptyCnt(), 0u);
    ExpireWaits();
    EXPECT_EQ(m_Queue.GetWritePtr(500), nullptr);
    EXPECT_EQ(system_calls().timed_wait_calls, 1);
    EXPECT_EQ(m_Queue.GetNumWaiters(), 0);
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(m_Queue.GetReadPtr(), m_Slots[i]);
        m_Queue.ReadDone();
    }
}

TEST_F(FrameQueue, WriteWaitLastsItsTimeOut) {
    Publish(5);
    ExpireWaits();
    EXPECT_EQ(m_Queue.GetWritePtr(1234), nullptr);
    ASSERT_EQ(timed_wait_lengths().size(), 1u);
    EXPECT_EQ(timed_wait_lengths()[0], 1234ms);
}

TEST_F(FrameQueue, ReadWaitLastsHalfASecond) {
    ExpireWaits();
    EXPECT_EQ(m_Queue.GetReadPtr(), nullptr);
    ASSERT_EQ(timed_wait_lengths().size(), 1u);
    EXPECT_EQ(timed_wait_lengths()[0], 500ms);
    EXPECT_EQ(m_Queue.GetNumWaiters(), 0);
}

TEST_F(FrameQueue, EmptyQueueGivesNoneAfterHalfASecond) {
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(m_Queue.GetReadPtr(), nullptr);
    const auto waited = std::chrono::steady_clock::now() - start;
    EXPECT_GE(waited, 490ms);
    EXPECT_LT(waited, 5s);
}

TEST_F(FrameQueue, ThereIsNoWaitWhileThereIsRoomOrAnElement) {
    ExpireWaits();
    Publish(4);
    EXPECT_NE(m_Queue.GetWritePtr(500), nullptr);
    EXPECT_NE(m_Queue.GetReadPtr(), nullptr);
    EXPECT_EQ(system_calls().timed_wait_calls, 0);
}

TEST_F(FrameQueue, WriteDoneWakesABlockedConsumer) {
    system_calls().endless_timed_waits = true;
    auto reader = std::async(std::launch::async, [&] { return m_Queue.GetReadPtr(); });
    AwaitWaiter();
    m_Queue.WriteDone();
    EXPECT_EQ(Woken(std::move(reader)), m_Slots[0]);
    EXPECT_EQ(m_Queue.GetNumWaiters(), 0);
}

TEST_F(FrameQueue, ReadDoneOnAFullQueueWakesABlockedProducer) {
    Publish(5);
    auto writer = std::async(std::launch::async, [&] { return m_Queue.GetWritePtr(-1); });
    AwaitWaiter();
    m_Queue.ReadDone();
    EXPECT_EQ(Woken(std::move(writer)), m_Slots[0]);
}

TEST_F(FrameQueue, WakeWaitMakesAConsumerLookAgainAndFindNothing) {
    system_calls().endless_timed_waits = true;
    auto reader = std::async(std::launch::async, [&] { return m_Queue.GetReadPtr(); });
    AwaitWaiter();
    m_Queue.WakeWait();
    EXPECT_EQ(Woken(std::move(reader)), nullptr);
}

TEST_F(FrameQueue, WakeWaitEndsAnUnlimitedWriteWaitWithNothing) {
    Publish(5);
    auto writer = std::async(std::launch::async, [&] { return m_Queue.GetWritePtr(-1); });
    AwaitWaiter();
    m_Queue.WakeWait();
    EXPECT_EQ(Woken(std::move(writer)), nullptr);
    EXPECT_EQ(system_calls().timed_wait_calls, 0);
}

TEST_F(FrameQueue, WriteDoneOnAFullQueueIsIgnored) {
    Publish(5);
    m_Queue.WriteDone();
    EXPECT_EQ(m_Queue.GetCnt(), 5u);
    m_Queue.ReadDone();
    EXPECT_EQ(m_Queue.GetWritePtr(0), m_Slots[0]);
}

TEST_F(FrameQueue, ReadDoneOnAnEmptyQueueIsIgnored) {
    m_Queue.ReadDone();
    EXPECT_EQ(m_Queue.GetCnt(), 0u);
    Publish(1);
    EXPECT_EQ(m_Queue.GetReadPtr(), m_Slots[0]);
}

TEST_F(OneSlotQueue, PassesElementsThroughItsOnlySlot) {
    for (int i = 0; i < 3; ++i) {
        Publish(1);
        EXPECT_EQ(m_Queue.GetEmptyCnt(), 0u);
        EXPECT_EQ(m_Queue.GetReadPtr(), m_Slots[0]);
        m_Queue.ReadDone();
    }
}

TEST_F(SmallFrameQueue, CarriesEveryElementBetweenTwoThreads) {
    constexpr uint32_t kCount = 20000;
    std::thread producer([&] {
        for (uint32_t i = 1; i <= kCount; ++i) {
            CFrameBuf* frame = nullptr;
            while ((frame = m_Queue.GetWritePtr(-1)) == nullptr) {
            }
            frame->len = i;
            m_Queue.WriteDone();
        }
    });
    uint32_t expected = 1;
    while (expected <= kCount) {
        const CFrameBuf* frame = m_Queue.GetReadPtr();
        if (frame == nullptr) {
            continue;
        }
        ASSERT_EQ(frame->len, expected);
        ++expected;
        m_Queue.ReadDone();
    }
    producer.join();
    EXPECT_EQ(m_Queue.GetCnt(), 0u);
}

// --- the producer's holder -----------------------------------------------------------------------

TEST_F(FrameQueue, LockerHoldsNothingAtFirst) {
    CFrameBufferLocker locker(&m_Queue);
    EXPECT_EQ(locker.GetCurFrameBuffer(), nullptr);
    locker.ReleaseFrameBuffer();
    EXPECT_EQ(m_Queue.GetCnt(), 0u);
}

TEST_F(FrameQueue, LockerPublishesTheCurrentBufferAndTakesTheNext) {
    CFrameBufferLocker locker(&m_Queue);
    EXPECT_EQ(locker.GetNewFrameBuffer(), m_Slots[0]);
    EXPECT_EQ(locker.GetCurFrameBuffer(), m_Slots[0]);
    EXPECT_EQ(m_Queue.GetCnt(), 0u);
    EXPECT_EQ(locker.GetNewFrameBuffer(500), m_Slots[1]);
    EXPECT_EQ(locker.GetCurFrameBuffer(), m_Slots[1]);
    EXPECT_EQ(m_Queue.GetCnt(), 1u);
}

TEST_F(FrameQueue, LockerReleasePublishesOnce) {
    CFrameBufferLocker locker(&m_Queue);
    locker.GetNewFrameBuffer();
    locker.ReleaseFrameBuffer();
    EXPECT_EQ(locker.GetCurFrameBuffer(), nullptr);
    EXPECT_EQ(m_Queue.GetCnt(), 1u);
    locker.ReleaseFrameBuffer();
    EXPECT_EQ(m_Queue.GetCnt(), 1u);
}

TEST_F(FrameQueue, LockerDestructionPublishesTheHeldBuffer) {
    {
        CFrameBufferLocker locker(&m_Queue);
        locker.GetNewFrameBuffer();
    }
    EXPECT_EQ(m_Queue.GetCnt(), 1u);
    EXPECT_EQ(m_Queue.GetReadPtr(), m_Slots[0]);
    { CFrameBufferLocker locker(&m_Queue); }
    EXPECT_EQ(m_Queue.GetCnt(), 1u);
}

TEST_F(SmallFrameQueue, LockerHasNoBufferWhileTheQueueIsFull) {
    ExpireWaits();
    CFrameBufferLocker locker(&m_Queue);
    locker.GetNewFrameBuffer(500);
    locker.GetNewFrameBuffer(500);
    EXPECT_EQ(locker.GetNewFrameBuffer(500), nullptr);
    EXPECT_EQ(locker.GetCurFrameBuffer(), nullptr);
    ASSERT_EQ(timed_wait_lengths().size(), 1u);
    EXPECT_EQ(timed_wait_lengths()[0], 500ms);
    EXPECT_EQ(m_Queue.GetCnt(), 2u);
    // Holding none, the next attempt publishes none.
    m_Queue.ReadDone();
    EXPECT_EQ(locker.GetNewFrameBuffer(500), m_Slots[0]);
    EXPECT_EQ(m_Queue.GetCnt(), 1u);
}

TEST_F(SmallFrameQueue, LockerWithoutTimeOutWaitsWithoutLimit) {
    CFrameBufferLocker locker(&m_Queue);
    locker.GetNewFrameBuffer(0);
    locker.GetNewFrameBuffer(0);
    auto producer = std::async(std::launch::async, [&] { return locker.GetNewFrameBuffer(); });
    AwaitWaiter();
    EXPECT_EQ(system_calls().timed_wait_calls, 0);
    m_Queue.ReadDone();
    ASSERT_EQ(producer.wait_for(kLimit), std::future_status::ready);
    EXPECT_EQ(producer.get(), m_Slots[0]);
}

}  // namespace
}  // namespace test
