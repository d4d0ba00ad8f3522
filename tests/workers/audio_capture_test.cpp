// The audio capture thread over a fake adapter: blocks of 960 bytes and their time.
#include "AudioCaptureThread.h"

#include <deque>
#include <numeric>

#include "CaptureClock.h"
#include "tests/support/Fakes.h"
#include "tests/support/PluginTest.h"

namespace test {
namespace {

using namespace std::chrono_literals;
using ::testing::NiceMock;

class AudioCapture : public PluginTest {
  protected:
    AudioCapture() {
        ON_CALL(capture_, GetBuf).WillByDefault([&](unsigned char** buf, unsigned* len) {
            EXPECT_EQ(*buf, nullptr);
            EXPECT_EQ(*len, 0u);
            return Lend(buf, len);
        });
        ON_CALL(capture_, RetBuf).WillByDefault([&] { ++returned_; });
        ON_CALL(subject_, OnFrameArrival).WillByDefault([&](const CCameraData* data) {
            const auto* bytes = static_cast<const uint8_t*>(data->m_pData);
            blocks_.emplace_back(bytes, bytes + data->m_size);
            cts_.push_back(data->m_cts);
            EXPECT_EQ(data->m_type, CAM_STREAM_PCM);
            EXPECT_EQ(static_cast<const CCameraExtData*>(data)->m_nExtDataSize, 0);
            EXPECT_EQ(static_cast<const CCameraExtData*>(data)->m_pExtData, nullptr);
            return true;
        });
    }
    /// The adapter's next answers: counts of running bytes.
    void Run(std::vector<int> reads) {
        reads_.assign(reads.begin(), reads.end());
        if (ticks_.empty()) {
            for (size_t i = 0; i < reads.size() + 2; ++i) {
                ticks_.push_back({5, static_cast<suseconds_t>(10000 * i)});
            }
        }
        clock().set_wall_clock(ticks_);
        CAudioCaptureThread thread(&capture_, &subject_);
        thread.Start("audio");
        std::unique_lock lock(mutex_);
        ASSERT_TRUE(done_.wait_for(lock, 20s, [&] { return over_; }));
        lock.unlock();
        thread.Stop();
    }
    /// All bytes delivered are the running ones, those lost left out.
    void ExpectRunning(uint8_t first) {
        for (const auto& block : blocks_) {
            ASSERT_EQ(block.size(), 960u);
            for (const uint8_t byte : block) {
                ASSERT_EQ(byte, first++);
            }
        }
    }

    NiceMock<FakeAudioCapture> capture_;
    NiceMock<FakeSubject> subject_;
    std::vector<std::vector<uint8_t>> blocks_;
    std::vector<unsigned long> cts_;
    std::vector<timeval> ticks_;
    int returned_ = 0;
    bool null_data_ = false;

  private:
    int Lend(unsigned char** buf, unsigned* len) {
        if (reads_.empty()) {
            std::unique_lock lock(mutex_);
            over_ = true;
            done_.notify_all();
            lock.unlock();
            std::this_thread::yield();
            return 0;
        }
        const int count = reads_.front();
        reads_.pop_front();
        if (count <= 0 || null_data_) {
            return count;
        }
        data_.resize(static_cast<size_t>(count));
        std::iota(data_.begin(), data_.end(), running_);
        running_ = static_cast<uint8_t>(running_ + count);
        *buf = data_.data();
        *len = static_cast<unsigned>(count);
        return count;
    }

    std::deque<int> reads_;
    std::vector<uint8_t> data_;
    uint8_t running_ = 0;
    std::mutex mutex_;
    std::condition_variable done_;
    bool over_ = false;
};

TEST_F(AudioCapture, CutsReadsIntoBlocks) {
    Run({500, 500, 1000});
    EXPECT_EQ(blocks_.size(), 2u);
    ExpectRunning(0);
    EXPECT_EQ(cts_, (std::vector<unsigned long>{1800, 2700}));  // 20 ms and 30 ms at 90 kHz
    EXPECT_EQ(returned_, 3);
    EXPECT_EQ(system_calls().last_priority, -19);
    EXPECT_LOG_COUNT(4, "Exit Audio capture thread.\r\n", 1);
}

TEST_F(AudioCapture, ABlockIsCompleteAt960) {
    Run({959, 1, 960});
    EXPECT_EQ(cts_, (std::vector<unsigned long>{1800, 2700}));
}

TEST_F(AudioCapture, BlocksOfOneTurnShareTheirStamp) {
    Run({2000});
    EXPECT_EQ(cts_, (std::vector<unsigned long>{900, 900}));
    ExpectRunning(0);
}

TEST_F(AudioCapture, AnOversizeReadIsCut) {
    Run({100, 4000, 956});
    // 4096 bytes in all after the second read: four blocks and 256 bytes; the third fills one more.
    EXPECT_EQ(blocks_.size(), 5u);
    EXPECT_EQ(cts_, (std::vector<unsigned long>{1800, 1800, 1800, 1800, 2700}));
    EXPECT_LOG_COUNT(3, "Audio buffer : 4096 overflow !!!! \r\n", 1);
    EXPECT_EQ(returned_, 3);
}

TEST_F(AudioCapture, AFullBufferIsNoOverflow) {
    Run({100, 3996});
    EXPECT_EQ(blocks_.size(), 4u);
    EXPECT_TRUE(log().texts(3).empty());
    ExpectRunning(0);
}

TEST_F(AudioCapture, TheRestOfAnOversizeReadIsLost) {
    Run({100, 4000, 704});
    // 4,096 of 4,100 bytes were taken, so that the third read goes on four bytes later.
    ASSERT_EQ(blocks_.size(), 5u);
    std::vector<uint8_t> all;
    for (const auto& block : blocks_) {
        all.insert(all.end(), block.begin(), block.end());
    }
    for (size_t i = 0; i < all.size(); ++i) {
        ASSERT_EQ(all[i], static_cast<uint8_t>(i < 4096 ? i : i + 4)) << i;
    }
}

TEST_F(AudioCapture, SamplesThatFillNoBlockAreDiscardedAtTheEnd) {
    Run({1919});
    EXPECT_EQ(blocks_.size(), 1u);
    EXPECT_EQ(returned_, 1);
}

TEST_F(AudioCapture, AHugeReadIsCutToTheBuffer) {
    Run({5000});
    EXPECT_EQ(blocks_.size(), 4u);
    ExpectRunning(0);
    EXPECT_EQ(log().texts(3).size(), 1u);
}

TEST_F(AudioCapture, NothingReadIsNothingReturned) {
    Run({0, -1, -2147483647 - 1, 960});
    EXPECT_EQ(blocks_.size(), 1u);
    EXPECT_EQ(returned_, 1);
    EXPECT_EQ(cts_, (std::vector<unsigned long>{3600}));
}

TEST_F(AudioCapture, APointerWithoutDataIsNotReturned) {
    uint8_t sample = 0;
    std::atomic<int> turns{0};
    ON_CALL(capture_, GetBuf).WillByDefault([&](unsigned char** buf, unsigned*) {
        *buf = &sample;
        ++turns;
        return 0;
    });
    CAudioCaptureThread thread(&capture_, &subject_);
    thread.Start("audio");
    while (turns < 3) {
        std::this_thread::yield();
    }
    thread.Stop();
    EXPECT_EQ(returned_, 0);
}

TEST_F(AudioCapture, DataWithoutAPointerIsSkipped) {
    null_data_ = true;
    Run({960, 5000});
    EXPECT_TRUE(blocks_.empty());
    EXPECT_LOG_COUNT(3, "Audio buffer : 4096 overflow !!!! \r\n", 1);
    EXPECT_EQ(returned_, 0);
}

TEST_F(AudioCapture, WhatCameWithTheStopIsDelivered) {
    struct Stoppable : CAudioCaptureThread {
        using CAudioCaptureThread::CAudioCaptureThread;
        using pThread::Shutdown;
    } thread(&capture_, &subject_);
    std::vector<unsigned char> data(960);
    EXPECT_CALL(capture_, GetBuf).WillOnce([&](unsigned char** buf, unsigned* len) {
        thread.Shutdown = true;
        *buf = data.data();
        *len = 960;
        return 960;
    });
    thread.Start("audio");
    ASSERT_TRUE(log().wait_for(4, "Exit Audio capture thread.\r\n", 20s));
    thread.Stop();
    EXPECT_EQ(blocks_.size(), 1u);
    EXPECT_EQ(returned_, 1);
}

TEST_F(AudioCapture, ARefusedPriorityIsLogged) {
    system_calls().setpriority = EPERM;
    Run({960});
    EXPECT_LOG_COUNT(1, "setpriority error!", 1);
    EXPECT_EQ(blocks_.size(), 1u);
}

TEST_F(AudioCapture, TickCountIsCutTo32Bits) {
    clock().set_wall_clock({{4294, 967296 - 1}, {4295, 0}, {1700000000, 123456}});
    EXPECT_EQ(GetTickCount(), 4294967295u);
    EXPECT_EQ(GetTickCount(), 4295000000u - 4294967296u);
    EXPECT_EQ(GetTickCount(), static_cast<uint32_t>(1700000000123456u));
}

}  // namespace
}  // namespace test
