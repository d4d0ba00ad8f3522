// The video capture thread over fakes: what is delivered, stamped, dropped and asked for.
#include "VideoCaptureThread.h"

#include <cstring>
#include <deque>

#include "tests/support/Fakes.h"
#include "tests/support/PluginTest.h"

namespace test {
namespace {

using namespace std::chrono_literals;
using ::testing::_;
using ::testing::NiceMock;

typedef std::vector<uint8_t> Bytes;

/// One delivery as an observer would keep it.
struct Delivery {
    CAM_STREAM_TYPE type;
    Bytes data;
    unsigned long cts;
    int extension;

    bool operator==(const Delivery&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Delivery& d) {
    return out << "type " << d.type << ", " << d.data.size() << " bytes, cts " << d.cts
               << ", extension " << d.extension;
}

Bytes H264(uint8_t nal, size_t size = 40) {
    Bytes bytes(size, nal);
    const uint8_t head[] = {0, 0, 0, 1, nal};
    std::memcpy(bytes.data(), head, sizeof head);
    return bytes;
}

Bytes KeyFrame() {
    Bytes frame = {0, 0, 0, 1, 0x67, 1, 2, 3, 4, 5, 6};
    frame.insert(frame.end(), {0, 0, 0, 1, 0x68, 7, 8, 9});
    const Bytes idr = H264(0x65, 30);
    frame.insert(frame.end(), idr.begin(), idr.end());
    return frame;
}

/// A received frame with its spare bytes.
struct ReceivedFrame {
    Bytes bytes;
    size_t size = 0;

    ReceivedFrame& Add(uint16_t type, const Bytes& data, uint32_t sequence = 0, uint16_t crop = 0) {
        TmkFramebaseHeader header = {};
        header.wHeaderLen = 28;
        header.wStreamType = type;
        header.wFrameRate = crop;
        header.dwFrameSeq = sequence;
        header.dwReserved = header.dwPlayloadSize = static_cast<uint32_t>(data.size());
        const auto* raw = reinterpret_cast<const uint8_t*>(&header);
        bytes.insert(bytes.end(), raw, raw + sizeof header);
        bytes.insert(bytes.end(), data.begin(), data.end());
        size = bytes.size();
        return *this;
    }
    ReceivedFrame& Valid(uint32_t count) {
        // Of the last sub-stream added, whose header lies before its data.
        TmkFramebaseHeader* header = LastHeader();
        header->dwReserved = count;
        return *this;
    }
    TmkFramebaseHeader* LastHeader() {
        size_t at = 0;
        while (true) {
            auto* header = reinterpret_cast<TmkFramebaseHeader*>(bytes.data() + at);
            const size_t next = at + 4u + header->wHeaderLen + header->dwPlayloadSize;
            if (next >= size) {
                return header;
            }
            at = next;
        }
    }
};

constexpr uint16_t kMain = 0x2B, kSub = 0x35, kJpeg = 0x2C, kGray = 0x2D, kNv12 = 0x2A,
                   kNv21 = 0x2F, kYuy2 = 0x29;

class VideoCapture : public PluginTest {
  protected:
    VideoCapture() {
        ON_CALL(capture_, GetFrameBuf).WillByDefault([&](uint8_t** buf, uint32_t* len) {
            return Lend(buf, len);
        });
        ON_CALL(capture_, RetFrameBuf).WillByDefault([&] { ++returned_; });
        ON_CALL(capture_, RequestKeyFrame).WillByDefault([&] {
            ++key_requests_;
            return true;
        });
        ON_CALL(subject_, OnFrameArrival).WillByDefault([&](const CCameraData* data) {
            return Take(data);
        });
    }

    ReceivedFrame& Next() {
        frames_.emplace_back();
        return frames_.back();
    }
    void NextEmpty(int count = 1) {
        for (int i = 0; i < count; ++i) {
            frames_.emplace_back();
        }
    }
    /// Runs the thread over all frames; the loop ends at its head after the last.
    void Run() {
        if (ticks_.empty()) {
            // One reading at the start and one a turn, 1 ms apart.
            for (size_t i = 0; i <= frames_.size() + 2; ++i) {
                ticks_.push_back({1000, static_cast<suseconds_t>(1000 * i)});
            }
        }
        clock().set_wall_clock(ticks_);
        thread_ = std::make_unique<CVideoCaptureThread>(&capture_, &subject_);
        thread_->SetSkypeCallMode(call_mode_);
        thread_->SetSignalType(CAM_SIGNAL_H264_GRAY);
        thread_->Start("video");
        std::unique_lock lock(mutex_);
        ASSERT_TRUE(done_.wait_for(lock, 20s, [&] { return waiting_; }));
        lock.unlock();
        thread_->Stop();
    }

    std::vector<Delivery> Delivered(CAM_STREAM_TYPE type) {
        std::vector<Delivery> some;
        for (const Delivery& d : deliveries_) {
            if (d.type == type) {
                some.push_back(d);
            }
        }
        return some;
    }
    static unsigned long Cts(uint64_t microseconds) {
        return static_cast<uint32_t>(
            static_cast<uint64_t>(static_cast<double>(microseconds) * 0.09));
    }

    NiceMock<FakeVideoCapture> capture_;
    NiceMock<FakeSubject> subject_;
    std::unique_ptr<CVideoCaptureThread> thread_;
    std::deque<ReceivedFrame> frames_;
    std::vector<timeval> ticks_;
    std::vector<Delivery> deliveries_;
    std::function<void(const CCameraData*)> during_delivery_;
    int returned_ = 0;
    int key_requests_ = 0;
    std::vector<size_t> pauses_at_;
    bool call_mode_ = false;

  private:
    int Lend(uint8_t** buf, uint32_t* len) {
        if (next_ < frames_.size()) {
            ReceivedFrame& frame = frames_[next_++];
            if (frame.size == 0) {
                *buf = nullptr;
                *len = 0;
                return 0;
            }
            frame.bytes.resize(frame.size + 64);
            *buf = frame.bytes.data();
            *len = static_cast<uint32_t>(frame.size) + 1;  // the result alone counts
            return static_cast<int>(frame.size);
        }
        // The script is over: as an adapter without frames, until the test stops the thread.
        std::unique_lock lock(mutex_);
        waiting_ = true;
        done_.notify_all();
        lock.unlock();
        std::this_thread::yield();
        ++idle_;
        return 0;
    }
    bool Take(const CCameraData* data) {
        const auto* bytes = static_cast<const uint8_t*>(data->m_pData);
        const bool extended = data->m_type != CAM_STREAM_H264_MAIN || !call_mode_;
        const int extension =
            extended ? static_cast<const CCameraExtData*>(data)->m_nExtDataSize : 0;
        deliveries_.push_back(
            {data->m_type, Bytes(bytes, bytes + data->m_size), data->m_cts, extension});
        if (during_delivery_) {
            during_delivery_(data);
        }
        return true;
    }

    size_t next_ = 0;
    size_t idle_ = 0;
    std::mutex mutex_;
    std::condition_variable done_;
    bool waiting_ = false;
};

TEST_F(VideoCapture, RunsAtRaisedPriority) {
    Run();
    EXPECT_EQ(system_calls().last_priority, -19);
    EXPECT_NO_LOG(1, "setpriority error!");
    EXPECT_LOG_COUNT(4, "Exit VideoCapture thread.\r\n", 1);
}

TEST_F(VideoCapture, ARefusedPriorityIsLogged) {
    system_calls().setpriority = EPERM;
    Next().Add(kMain, H264(0x67), 1);
    Run();
    EXPECT_LOG_COUNT(1, "setpriority error!", 1);
    EXPECT_EQ(deliveries_.size(), 1u);
}

TEST_F(VideoCapture, EverySubStreamGoesOutUnderItsTypeInOrder) {
    const Bytes a(41, 1), b(42, 2), c(43, 3), d(44, 4), e(45, 5);
    Next()
        .Add(kYuy2, a)
        .Add(kNv21, b)
        .Add(kNv12, c, 0, 1)
        .Add(kGray, d, 0, 7)
        .Add(kJpeg, e)
        .Add(kSub, H264(0x67), 1)
        .Add(kMain, H264(0x67), 1);
    Run();
    const unsigned long cts = Cts(1000);
    EXPECT_EQ(deliveries_, (std::vector<Delivery>{{CAM_STREAM_H264_MAIN, H264(0x67), cts, 0},
                                                  {CAM_STREAM_H264_SUB, H264(0x67), cts, 0},
                                                  {CAM_STREAM_JPEG, e, 0, 0},
                                                  {CAM_STREAM_GRAY, d, 7, 12},
                                                  {CAM_STREAM_NV12, c, 1, 12},
                                                  {CAM_STREAM_NV21, b, 0, 12},
                                                  {CAM_STREAM_YUYV, a, 0, 12}}));
    EXPECT_EQ(returned_, 1);
}

TEST_F(VideoCapture, ExtensionIsNotLeftOverFromTheFrameBefore) {
    Next().Add(kGray, Bytes(50, 1));
    Next().Add(kYuy2, Bytes(50, 2));
    Next().Add(kNv12, Bytes(50, 2)).Add(kNv21, Bytes(50, 3));
    Run();
    EXPECT_EQ(Delivered(CAM_STREAM_YUYV).at(0).extension, 0);
    EXPECT_EQ(Delivered(CAM_STREAM_NV21).at(0).extension, 12);
}

TEST_F(VideoCapture, TheZoomParametersAreZeroedForEachImage) {
    Next().Add(kGray, Bytes(50, 1)).Add(kNv12, Bytes(50, 2));
    during_delivery_ = [](const CCameraData* data) {
        const auto* record = static_cast<const CCameraExtData*>(data);
        CCamZoomParameters zero = {};
        EXPECT_EQ(std::memcmp(record->m_pExtData, &zero, sizeof zero), 0);
        std::memset(record->m_pExtData, 0xFF, sizeof zero);
    };
    Run();
    EXPECT_EQ(deliveries_.size(), 2u);
}

TEST_F(VideoCapture, StampsAre90kHzOfTheTimeSinceTheStart) {
    ticks_ = {{10, 0}, {10, 500000}, {12, 500000}, {12, 500011}};
    Next().Add(kMain, H264(0x67), 1);
    Next().Add(kMain, H264(0x41), 2).Add(kSub, H264(0x67), 1);
    Next().Add(kMain, H264(0x41), 3);
    Run();
    const auto main = Delivered(CAM_STREAM_H264_MAIN);
    ASSERT_EQ(main.size(), 3u);
    EXPECT_EQ(main[0].cts, 45000u);
    EXPECT_EQ(main[1].cts, 225000u);
    EXPECT_EQ(main[2].cts, Cts(2500011));
    EXPECT_EQ(Delivered(CAM_STREAM_H264_SUB).at(0).cts, 225000u);
    EXPECT_LOG(5, "Currnet CTS is (225000 : 180000)");
}

TEST_F(VideoCapture, AnEmptyFrameAdvancesTheClock) {
    ticks_ = {{10, 0}, {10, 100000}, {10, 300000}};
    NextEmpty();
    Next().Add(kMain, H264(0x67), 1);
    Run();
    EXPECT_EQ(deliveries_.at(0).cts, 27000u);
    EXPECT_EQ(returned_, 1);
    EXPECT_GE(log().count(4, "Zero frame size.\r\n"), 1u);
}

TEST_F(VideoCapture, ATickThatDoesNotGrowCountsAsAWrap) {
    // 4294967296 us are one turn of the counter: the reading goes from 4294967290 to 4.
    ticks_ = {{4294, 967290}, {4294, 967300}, {4294, 967300}};
    Next().Add(kMain, H264(0x67), 1);
    Next().Add(kMain, H264(0x41), 2);
    Run();
    ASSERT_EQ(deliveries_.size(), 2u);
    EXPECT_EQ(deliveries_[0].cts, Cts((0xFFFFFFFFu - 4294967290u) + 4));
    EXPECT_EQ(deliveries_[1].cts, Cts(9 + uint64_t{0xFFFFFFFF - 4} + 4));  // equal: a whole turn
}

TEST_F(VideoCapture, StampsAreCutTo32Bits) {
    ticks_ = {{10, 0}};  // equal readings: each counts as a whole turn
    for (uint32_t i = 1; i <= 13; ++i) {
        Next().Add(kMain, H264(0x67), i);
    }
    Run();
    EXPECT_EQ(deliveries_.back().cts, 730144439u);  // 55834574835 us at 90 kHz, less 2^32
}

TEST_F(VideoCapture, ARepeatedStampIsReportedAndDelivered) {
    ticks_ = {{10, 0}, {10, 1000}, {10, 1001}, {10, 2000}};
    Next().Add(kMain, H264(0x67), 1);
    Next().Add(kMain, H264(0x41), 2);
    Next().Add(kMain, H264(0x41), 3);
    Run();
    EXPECT_EQ(deliveries_.size(), 3u);
    EXPECT_LOG_COUNT(1, "CTS problem has been occured !!!", 1);
    EXPECT_LOG_COUNT(5, "Currnet CTS is (180 : 90)", 1);
}

TEST_F(VideoCapture, ALossSilencesBothStreamsUntilTheirKeyFrames) {
    Next().Add(kMain, H264(0x67), 10).Add(kSub, H264(0x67), 20);
    Next().Add(kMain, H264(0x41), 11).Add(kSub, H264(0x41), 21);
    Next().Add(kMain, H264(0x41), 13).Add(kSub, H264(0x41), 22);
    Next().Add(kMain, H264(0x41), 14).Add(kSub, H264(0x67), 23);
    Next().Add(kMain, H264(0x67), 15).Add(kSub, H264(0x41), 24);
    Run();
    EXPECT_EQ(Delivered(CAM_STREAM_H264_MAIN).size(), 3u);
    EXPECT_EQ(Delivered(CAM_STREAM_H264_SUB).size(), 4u);
    EXPECT_EQ(key_requests_, 1);
    EXPECT_LOG_COUNT(4, "Main H264, FRAME LOST. 13\r\n", 1);
    EXPECT_LOG_COUNT(3, "Drop H264[1] frame.\r\n", 2);
    EXPECT_LOG_COUNT(4, "Drop H264[2] frame.\r\n", 1);
    EXPECT_EQ(returned_, 5);
}

TEST_F(VideoCapture, ALossOfTheSubStreamLeavesTheMainOne) {
    Next().Add(kMain, H264(0x67), 1).Add(kSub, H264(0x67), 1);
    Next().Add(kMain, H264(0x41), 2).Add(kSub, H264(0x41), 3);
    Next().Add(kMain, H264(0x41), 3).Add(kSub, H264(0x41), 4);
    Run();
    EXPECT_EQ(Delivered(CAM_STREAM_H264_MAIN).size(), 3u);
    EXPECT_EQ(Delivered(CAM_STREAM_H264_SUB).size(), 1u);
    EXPECT_EQ(key_requests_, 1);
    EXPECT_LOG_COUNT(4, "Sub H264, FRAME LOST. 3\r\n", 1);
    EXPECT_LOG_COUNT(4, "Drop H264[2] frame.\r\n", 2);
}

TEST_F(VideoCapture, EverySixDroppedPFramesAskAgain) {
    Next().Add(kMain, H264(0x67), 1);
    for (uint32_t sequence = 3; sequence <= 15; ++sequence) {
        Next().Add(kMain, H264(0x41), sequence);
    }
    Run();
    EXPECT_EQ(deliveries_.size(), 1u);
    EXPECT_EQ(key_requests_, 3);
    EXPECT_LOG(4, "Main H264, FRAME LOST. 3\r\n");
    EXPECT_LOG(4, "Main H264, FRAME LOST. 9\r\n");
    EXPECT_LOG(4, "Main H264, FRAME LOST. 15\r\n");
}

TEST_F(VideoCapture, SequenceZeroIsDelivered) {
    Next().Add(kMain, H264(0x67), 5);
    Next().Add(kMain, H264(0x41), 0);
    Next().Add(kMain, H264(0x41), 1);
    Run();
    EXPECT_EQ(deliveries_.size(), 3u);
}

TEST_F(VideoCapture, AKeyFrameIsAskedForWhenTheBufferHasGoneBack) {
    std::vector<int> returnedBefore;
    ON_CALL(capture_, RequestKeyFrame).WillByDefault([&] {
        returnedBefore.push_back(returned_);
        return true;
    });
    Next().Add(kMain, H264(0x67), 1).Add(kSub, H264(0x67), 1);
    Next().Add(kMain, H264(0x41), 3).Add(kSub, H264(0x41), 2);
    Next().Add(kMain, H264(0x67), 4).Add(kSub, H264(0x67), 4);
    Next().Add(kMain, H264(0x41), 5).Add(kSub, H264(0x41), 6);
    Run();
    EXPECT_EQ(returnedBefore, (std::vector<int>{2, 4}));
}

TEST_F(VideoCapture, CallModeKnowsTheKindOfAFrameWithSequenceZero) {
    call_mode_ = true;
    Next().Add(kMain, KeyFrame(), 0);
    Next().Add(kMain, H264(0x41), 0);
    Run();
    const auto main = Delivered(CAM_STREAM_H264_MAIN);
    ASSERT_EQ(main.size(), 4u);
    EXPECT_EQ(main[3].data, H264(0x41));
}

TEST_F(VideoCapture, CallModeDeliversAKeyFrameInThreeParts) {
    call_mode_ = true;
    Next().Add(kMain, KeyFrame(), 1).Add(kSub, KeyFrame(), 1);
    Next().Add(kMain, H264(0x41), 2);
    Run();
    const Bytes frame = KeyFrame();
    const unsigned long cts = Cts(1000);
    const auto main = Delivered(CAM_STREAM_H264_MAIN);
    ASSERT_EQ(main.size(), 4u);
    EXPECT_EQ(main[0],
              (Delivery{CAM_STREAM_H264_MAIN, Bytes(frame.begin(), frame.begin() + 11), cts, 0}));
    EXPECT_EQ(main[1], (Delivery{CAM_STREAM_H264_MAIN,
                                 Bytes(frame.begin() + 11, frame.begin() + 19), cts, 0}));
    EXPECT_EQ(main[2],
              (Delivery{CAM_STREAM_H264_MAIN, Bytes(frame.begin() + 19, frame.end()), cts, 0}));
    EXPECT_EQ(main[3].data, H264(0x41));
    EXPECT_EQ(Delivered(CAM_STREAM_H264_SUB).size(), 1u);
    EXPECT_EQ(log().count_containing("Currnet CTS"), 0u);  // the parts are not compared
}

TEST_F(VideoCapture, CallModeDropsAKeyFrameThatCannotBeSplit) {
    call_mode_ = true;
    Next().Add(kMain, H264(0x67), 1);
    Next().Add(kMain, {0, 0, 0, 1, 0x67, 0x68}, 2);           // PPS header too early: sps size 1
    Next().Add(kMain, {0, 0, 0, 1, 0x67, 0, 0, 0, 0x68}, 3);  // IDR would have a negative size
    Run();
    EXPECT_TRUE(deliveries_.empty());
    EXPECT_EQ(log().count(1, "Failed to parsing H264 key frame !!!"), 3u);
    EXPECT_EQ(returned_, 3);
}

TEST_F(VideoCapture, ThirtyMainFramesShowThatItLives) {
    for (uint32_t i = 1; i <= 60; ++i) {
        Next().Add(kMain, H264(i == 1 ? 0x67 : 0x41), i == 40 ? 99 : i);  // dropped ones count too
    }
    Run();
    EXPECT_EQ(log().count_containing("CVideoCaptureThread:: MAIN H264 ALIVE. Timestamp= "), 2u);
    EXPECT_LOG(5, "CVideoCaptureThread:: MAIN H264 ALIVE. Timestamp= " +
                      std::to_string(Cts(30000)) + "\r\n");
    EXPECT_LOG(5, "CVideoCaptureThread:: MAIN H264 ALIVE. Timestamp= " +
                      std::to_string(Cts(60000)) + "\r\n");
}

TEST_F(VideoCapture, EveryFifthEmptyFrameCausesAPause) {
    clock().on_sleep([&](const SleepCall&) {
        // Frames taken so far tell which one paused.
        pauses_at_.push_back(log().count(4, "Zero frame size.\r\n"));
    });
    NextEmpty(3);
    Next().Add(kMain, H264(0x67), 1);  // does not reset the count
    NextEmpty(7);
    EXPECT_CALL(capture_, ResetStream).Times(0);  // whatever the line says
    Run();
    ASSERT_GE(pauses_at_.size(), 2u);
    EXPECT_EQ(pauses_at_[0], 5u);
    EXPECT_EQ(pauses_at_[1], 10u);
    EXPECT_EQ(clock().sleeps().at(0).duration, 1s);
    EXPECT_GE(log().count(4, "Detected a video hangup problem, reset streaming.\r\n"), 2u);
}

TEST_F(VideoCapture, SubStreamsThatLeaveTheirFrameAreNotDelivered) {
    // 32 bytes behind the frame are allowed, one more is not, whatever the stream.
    for (const uint16_t type : {kMain, kSub, kJpeg, kGray, kNv12, kNv21, kYuy2}) {
        Next().Add(type, H264(0x67, 64), 1).Valid(64 + 32);
        Next().Add(type, H264(0x67, 64), 2).Valid(64 + 33);
        Next().Add(type, H264(0x67, 64), 3).Valid(0xFFFFFFF0);
    }
    Run();
    EXPECT_EQ(deliveries_.size(), 7u);
    for (const Delivery& delivery : deliveries_) {
        EXPECT_EQ(delivery.data.size(), 96u);
    }
    EXPECT_EQ(log().texts(3).size(), 14u);
    EXPECT_EQ(returned_, 21);
}

TEST_F(VideoCapture, DataThatBeginsBehindTheFrameIsNotDelivered) {
    ReceivedFrame& frame = Next().Add(kGray, Bytes(64, 1)).Valid(0);
    reinterpret_cast<TmkFramebaseHeader*>(frame.bytes.data())->wHeaderLen = 96 - 4;
    reinterpret_cast<TmkFramebaseHeader*>(frame.bytes.data())->dwPlayloadSize = 0;
    Run();
    EXPECT_TRUE(deliveries_.empty());
    EXPECT_EQ(log().texts(3).size(), 1u);
}

/// A thread that a delivery or the adapter can ask to stop.
struct StoppableThread : CVideoCaptureThread {
    using CVideoCaptureThread::CVideoCaptureThread;
    using pThread::Shutdown;
};

TEST_F(VideoCapture, AStopIsSeenBeforeEachDelivery) {
    const CAM_STREAM_TYPE order[] = {CAM_STREAM_H264_MAIN, CAM_STREAM_H264_SUB, CAM_STREAM_JPEG,
                                     CAM_STREAM_GRAY,      CAM_STREAM_NV12,     CAM_STREAM_NV21,
                                     CAM_STREAM_YUYV};
    for (size_t last = 0; last < std::size(order); ++last) {
        SCOPED_TRACE(last);
        Next()
            .Add(kMain, H264(0x67), 1)
            .Add(kSub, H264(0x67), 1)
            .Add(kJpeg, Bytes(40))
            .Add(kGray, Bytes(40))
            .Add(kNv12, Bytes(40))
            .Add(kNv21, Bytes(40))
            .Add(kYuy2, Bytes(40));
        deliveries_.clear();
        log().reset();
        StoppableThread thread(&capture_, &subject_);
        during_delivery_ = [&](const CCameraData* data) {
            thread.Shutdown = data->m_type == order[last];
        };
        thread.Start("video");
        ASSERT_TRUE(log().wait_for(4, "Exit VideoCapture thread.\r\n", 20s));
        thread.Stop();
        EXPECT_EQ(deliveries_.size(), last + 1);
    }
    EXPECT_EQ(returned_, 0);  // the last delivery's stop, too, leaves the frame with the adapter
}

TEST_F(VideoCapture, AFrameThatCameWithTheStopIsNotDelivered) {
    StoppableThread thread(&capture_, &subject_);
    ReceivedFrame frame;
    frame.Add(kMain, H264(0x67), 1).Add(kSub, H264(0x67), 1).Add(kJpeg, Bytes(40));
    frame.bytes.resize(frame.size + 64);
    EXPECT_CALL(capture_, GetFrameBuf).WillOnce([&](uint8_t** buf, uint32_t* len) {
        thread.Shutdown = true;
        *buf = frame.bytes.data();
        *len = static_cast<uint32_t>(frame.size);
        return static_cast<int>(frame.size);
    });
    thread.Start("video");
    ASSERT_TRUE(log().wait_for(4, "Exit VideoCapture thread.\r\n", 20s));
    thread.Stop();
    EXPECT_TRUE(deliveries_.empty());
    EXPECT_EQ(returned_, 0);
}

TEST_F(VideoCapture, ALossIsLoggedThenDroppedThenAskedFor) {
    Next().Add(kMain, H264(0x67), 1).Add(kSub, H264(0x67), 1);
    Next().Add(kMain, H264(0x41), 3).Add(kSub, H264(0x67), 2);
    Next().Add(kMain, H264(0x67), 4).Add(kSub, H264(0x41), 4);
    std::vector<std::string> logged_before_request;
    ON_CALL(capture_, RequestKeyFrame).WillByDefault([&] {
        logged_before_request.push_back(log().lines().back().text);
        return true;
    });
    Run();
    EXPECT_EQ(logged_before_request,
              (std::vector<std::string>{"Drop H264[1] frame.\r\n", "Drop H264[2] frame.\r\n"}));
    const Lines lines = Log([](const LogLine& line) {
        return line.text.find("LOST") != std::string::npos ||
               line.text.find("Drop") != std::string::npos;
    });
    EXPECT_EQ(lines, (Lines{{4, "Main H264, FRAME LOST. 3\r\n"},
                            {3, "Drop H264[1] frame.\r\n"},
                            {4, "Sub H264, FRAME LOST. 4\r\n"},
                            {4, "Drop H264[2] frame.\r\n"}}));
}

TEST_F(VideoCapture, AWaitingDetectorDropsWithoutAsking) {
    Next().Add(kMain, H264(0x67), 10);
    Next().Add(kMain, H264(0x41), 11);
    Next().Add(kMain, H264(0x41), 12);
    Next().Add(kMain, H264(0x41), 14);
    Next().Add(kMain, H264(0x41), 15);
    Next().Add(kMain, H264(0x67), 16);
    Run();
    EXPECT_EQ(deliveries_.size(), 4u);
    EXPECT_EQ(deliveries_.back().data, H264(0x67));
    EXPECT_EQ(key_requests_, 1);
    EXPECT_LOG_COUNT(3, "Drop H264[1] frame.\r\n", 2);
}

TEST_F(VideoCapture, OneByteIsAFrameAndANegativeResultIsNone) {
    StoppableThread thread(&capture_, &subject_);
    uint8_t byte[65] = {};
    int turn = 0;
    ON_CALL(capture_, GetFrameBuf).WillByDefault([&](uint8_t** buf, uint32_t* len) {
        thread.Shutdown = ++turn == 2;
        *buf = byte;
        *len = 1;
        return turn == 1 ? 1 : -1;
    });
    thread.Start("video");
    ASSERT_TRUE(log().wait_for(4, "Exit VideoCapture thread.\r\n", 20s));
    thread.Stop();
    EXPECT_EQ(log().texts(4),
              (std::vector<std::string>{"Parser Error, offset >= frame_size \r\n",
                                        "Zero frame size.\r\n", "Exit VideoCapture thread.\r\n"}));
    EXPECT_EQ(returned_, 1);
}

TEST_F(VideoCapture, CallModeDeliversAKeyFrameWithAnEmptyLastPart) {
    call_mode_ = true;
    const Bytes frame = {0, 0, 0, 1, 0x67, 1, 2, 3, 4, 5, 6, 0, 0, 0, 1, 0x68, 7, 8, 9};
    Next().Add(kMain, frame, 1);
    Run();
    ASSERT_EQ(deliveries_.size(), 3u);
    EXPECT_TRUE(deliveries_[2].data.empty());
    EXPECT_NO_LOG(1, "Failed to parsing H264 key frame !!!");
}

TEST_F(VideoCapture, FourEmptyFramesCauseNoPause) {
    NextEmpty(4);
    Next().Add(kMain, H264(0x67), 1);
    size_t pauses = 99;
    during_delivery_ = [&](const CCameraData*) { pauses = clock().sleeps().size(); };
    Run();
    EXPECT_EQ(pauses, 0u);
}

TEST_F(VideoCapture, AFrameWithoutSubStreamsIsReturned) {
    ReceivedFrame& frame = Next();
    frame.bytes.assign(20, 1);
    frame.size = 20;
    Run();
    EXPECT_TRUE(deliveries_.empty());
    EXPECT_EQ(returned_, 1);
    EXPECT_LOG_COUNT(4, "Parser Error, offset >= frame_size \r\n", 1);
}

TEST_F(VideoCapture, OutsideCallModeAKeyFrameIsDeliveredWhole) {
    Next().Add(kMain, KeyFrame(), 1);
    Run();
    ASSERT_EQ(deliveries_.size(), 1u);
    EXPECT_EQ(deliveries_[0].data, KeyFrame());
}

TEST_F(VideoCapture, AStopDuringADeliveryEndsTheTurn) {
    Next()
        .Add(kMain, H264(0x67), 1)
        .Add(kSub, H264(0x67), 1)
        .Add(kJpeg, Bytes(40))
        .Add(kGray, Bytes(40));
    Next().Add(kMain, H264(0x41), 2);
    StoppableThread thread(&capture_, &subject_);
    during_delivery_ = [&](const CCameraData* data) {
        if (data->m_type == CAM_STREAM_H264_SUB) {
            thread.Shutdown = true;
        }
    };
    thread.Start("video");
    ASSERT_TRUE(log().wait_for(4, "Exit VideoCapture thread.\r\n", 20s));
    thread.Stop();
    EXPECT_EQ(deliveries_.size(), 2u);
    EXPECT_EQ(returned_, 0);  // the frame stays with the adapter, which is about to be stopped
}

TEST_F(VideoCapture, ARecordOfTheMainStream) {
    unsigned char bytes[] = {1, 2, 3};
    CVideoCaptureThread thread(&capture_, &subject_);
    call_mode_ = true;
    thread.UpdateH264Frame(bytes, 3, 77);
    EXPECT_EQ(deliveries_, (std::vector<Delivery>{{CAM_STREAM_H264_MAIN, {1, 2, 3}, 77, 0}}));
}

}  // namespace
}  // namespace test
