// Copies, allocations, locks and signals of one frame, from the completion of its first transfer to
// the end of Update, exactly. Each case prints what it counted ("counter NAME VALUE") for
// scripts/bench.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <functional>
#include <nlohmann/json.hpp>
#include <thread>
#include <vector>

#include "AitOrixCamera.h"
#include "AudioCaptureThread.h"
#include "CLibusb_UacCtrl.h"
#include "CLibusb_UvcCtrl.h"
#include "PayloadParser.h"
#include "VideoCaptureThread.h"
#include "tests/counters/counted_calls.h"
#include "tests/support/FramesOnly.h"
#include "virtcam/bus/control.h"

namespace test {
namespace {

using namespace std::chrono_literals;
using Bytes = std::vector<uint8_t>;

constexpr int kVendor = 0x114D, kProduct = 0x2066;
constexpr auto kLimit = 20s;
constexpr int kFrames = 50;

bool Await(const std::function<bool()>& condition) {
    const auto end = std::chrono::steady_clock::now() + kLimit;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        std::this_thread::yield();
    }
    return true;
}

template <typename Engine>
class OpenEngine : public Engine {
  public:
    OpenEngine() { EXPECT_EQ(Engine::Init(kVendor, kProduct), 0); }

    /// The consumer has taken all there is and waits for more.
    bool ConsumerWaits() {
        auto* queue = Engine::Queue();
        return queue->GetCnt() == 0 && queue->GetNumWaiters() == 1;
    }
    /// One round of events, counted.
    void Handle() {
        const Counting counting(true);
        Engine::handle_libusb_event();
    }
};

/// The adapters' part between engine and capture thread, without the thread of the engine.
class VideoRoad : public FramesOnly {
  public:
    explicit VideoRoad(OpenEngine<CLibUSB_UvcCtrl>& engine) : m_Engine(engine) {}
    int GetFrameBuf(uint8_t** data, uint32_t* length) override {
        count_on_this_thread(true);  // the capture thread's from here on
        return static_cast<int>(m_Engine.DequeFrameBuf(data, length));
    }
    void RetFrameBuf() override { m_Engine.QueueFrameBuf(); }

  private:
    OpenEngine<CLibUSB_UvcCtrl>& m_Engine;
};

class AudioRoad : public IAudioCapture {
  public:
    explicit AudioRoad(OpenEngine<CLibUSB_UacCtrl>& engine) : m_Engine(engine) {}
    bool ConfigureDev(uint8_t, uint32_t, uint32_t) override { return true; }
    void UnConfigureDev() override {}
    int ReadAudioData(uint8_t*, uint32_t) override { return 0; }
    bool SetVolume(int) override { return true; }
    int GetBuf(unsigned char** data, unsigned* length) override {
        count_on_this_thread(true);
        return static_cast<int>(m_Engine.DequeFrameBuf(data, length));
    }
    void RetBuf() override { m_Engine.QueueFrameBuf(); }
    int SetSamplingRate(int) override { return 0; }

  private:
    OpenEngine<CLibUSB_UacCtrl>& m_Engine;
};

class Observer : public ICameraObserver {
  public:
    explicit Observer(CAM_STREAM_TYPE type) { m_StreamType = type; }
    bool Update(const CCameraData* data) override {
        m_Bytes += data->m_size;
        return true;
    }
    std::atomic<uint64_t> m_Bytes{0};
};

class Counters : public testing::Test {
  protected:
    Counters() {
        virtcam::bus::reset({{"camera", {{"identity", "run-time"}}}, {"bus", {{"quiet", true}}}});
        virtcam::bus::script_stream(true);
    }

    /// Prints and remembers what `work` cost for each of `times` repetitions.
    static void Count(const char* what, double times, const Counted& sum) {
        const auto print = [&](const char* name, uint64_t value) {
            std::printf("counter %s_%s %.17g\n", what, name, static_cast<double>(value) / times);
        };
        print("cleared_bytes", sum.cleared_bytes);
        print("allocations", sum.allocations);
        print("locks", sum.locks);
        print("signals", sum.signals);
    }

    CAitOrixCamera m_Camera;
};

// --- video ---------------------------------------------------------------------------------------

/// A frame of one sub-stream of `size` bytes, cut into the payloads that carry it.
std::vector<Bytes> VideoPayloads(uint32_t size, size_t room, uint8_t frameId) {
    TmkFramebaseHeader header = {};
    header.wHeaderLen = sizeof header - 4;
    header.wStreamType = 0x29;
    header.dwReserved = header.dwPlayloadSize = size;
    const auto* bytes = reinterpret_cast<const uint8_t*>(&header);
    Bytes frame(bytes, bytes + sizeof header);
    frame.resize(sizeof header + size, 0x5A);
    std::vector<Bytes> payloads;
    for (size_t offset = 0; offset < frame.size(); offset += room) {
        Bytes payload = {12, frameId, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
        const size_t end = std::min(frame.size(), offset + room);
        payload.insert(payload.end(), frame.begin() + static_cast<ptrdiff_t>(offset),
                       frame.begin() + static_cast<ptrdiff_t>(end));
        payloads.push_back(payload);
    }
    payloads.push_back({12, static_cast<uint8_t>(frameId | 2), 0, 0, 0, 0, 0, 0, 0, 0, 0, 0});
    return payloads;
}

/// Sends one frame payload by payload, a round of events each.
void Send(OpenEngine<CLibUSB_UvcCtrl>& engine, const std::vector<Bytes>& payloads) {
    for (const Bytes& payload : payloads) {
        virtcam::bus::push_bulk(virtcam::bus::TransferStatus::kCompleted, payload);
        engine.Handle();
    }
}

TEST_F(Counters, OfAPicture) {
    constexpr uint32_t kSize = 40'000;
    OpenEngine<CLibUSB_UvcCtrl> engine;
    ASSERT_EQ(engine.UVC_EnableVideoStream(4, 5, 30), 0);
    // As long as the transfers: a payload for each round of events.
    const auto first = VideoPayloads(kSize, 4000, 0), second = VideoPayloads(kSize, 4000, 1);
    Observer observer(CAM_STREAM_YUYV);
    m_Camera.RegisterObserver(&observer);
    VideoRoad road(engine);
    CVideoCaptureThread thread(&road, &m_Camera);
    thread.Start(nullptr);

    const auto sendAndAwait = [&](int count) {
        for (int i = 0; i < count; ++i) {
            const uint64_t before = observer.m_Bytes;
            Send(engine, i % 2 == 0 ? first : second);
            ASSERT_TRUE(Await([&] { return observer.m_Bytes == before + kSize; }));
            ASSERT_TRUE(Await([&] { return engine.ConsumerWaits(); }));
        }
    };
    ASSERT_TRUE(Await([&] { return engine.ConsumerWaits(); }));
    sendAndAwait(4);  // what is done once is done
    const Counted before = counted();
    sendAndAwait(kFrames);
    const Counted sum = counted() - before;

    thread.Stop();
    m_Camera.RemoveObserver(&observer);
    engine.UVC_DisableVideoStream();

    const double delivered = double{kFrames} * (kSize + sizeof(TmkFramebaseHeader));
    std::printf("counter video_copied_per_byte %.17g\n",
                static_cast<double>(sum.copied_bytes) / delivered);
    Count("video", kFrames, sum);
    EXPECT_EQ(sum.copied_bytes, static_cast<uint64_t>(delivered));
    EXPECT_EQ(sum.allocations, 0u);
    EXPECT_EQ(sum.signals, uint64_t{kFrames});
    // For each payload the event round (the completion's own lock is none of pthreads' while nobody
    // waits for it); for each frame one look at the queue that publishes it, two that take it and
    // give it back, and the delivery.
    EXPECT_EQ(sum.locks, kFrames * (first.size() + 4));
    // Records on the stack; nothing as large as a buffer.
    EXPECT_LE(sum.cleared_bytes, uint64_t{kFrames} * 512);
}

/// Sub-streams, however many, cost nothing of it.
TEST_F(Counters, OfTheParser) {
    Bytes frame;
    for (const uint8_t format : {0x2B, 0x35, 0x2C, 0x2D, 0x2A, 0x2F, 0x29}) {
        TmkFramebaseHeader header = {};
        header.wHeaderLen = sizeof header - 4;
        header.wStreamType = format;
        header.dwReserved = header.dwPlayloadSize = 1000;
        const auto* bytes = reinterpret_cast<const uint8_t*>(&header);
        frame.insert(frame.end(), bytes, bytes + sizeof header);
        frame.resize(frame.size() + 1000);
    }
    AitH264_MediaSample sample;
    const Counted before = counted();
    {
        const Counting counting(true);
        H264Parser_tmk_mode(frame.data(), static_cast<unsigned>(frame.size()), &sample);
    }
    const Counted sum = counted() - before;
    EXPECT_NE(sample.yuy2, nullptr);
    std::printf("counter parser_copied_bytes %.17g\ncounter parser_allocations %.17g\n",
                static_cast<double>(sum.copied_bytes), static_cast<double>(sum.allocations));
    EXPECT_EQ(sum.copied_bytes, 0u);
    EXPECT_EQ(sum.allocations, 0u);
    EXPECT_EQ(sum.locks, 0u);
}

// --- sound ---------------------------------------------------------------------------------------

TEST_F(Counters, OfSound) {
    constexpr size_t kPacket = 32, kPackets = 10, kBlock = 960;
    constexpr int kTransfers = 3 * kFrames;  // 320 bytes each: three to a block
    OpenEngine<CLibUSB_UacCtrl> engine;
    ASSERT_EQ(engine.UAC_EnableAudioStream(16000), 0);
    Observer observer(CAM_STREAM_PCM);
    m_Camera.RegisterObserver(&observer);
    AudioRoad road(engine);
    CAudioCaptureThread thread(&road, &m_Camera);
    thread.Start(nullptr);

    const auto sendAndAwait = [&](int transfers) {
        for (int i = 0; i < transfers; ++i) {
            std::vector<virtcam::bus::IsoPacket> packets(kPackets);
            for (auto& packet : packets) {
                packet.bytes.assign(kPacket, 0x5A);
            }
            virtcam::bus::push_iso(packets);
            engine.Handle();
            ASSERT_TRUE(Await([&] { return engine.ConsumerWaits(); }));
        }
    };
    ASSERT_TRUE(Await([&] { return engine.ConsumerWaits(); }));
    sendAndAwait(3);
    const uint64_t delivered = observer.m_Bytes;
    const Counted before = counted();
    sendAndAwait(kTransfers);
    const Counted sum = counted() - before;
    EXPECT_EQ(observer.m_Bytes - delivered, kFrames * kBlock);

    thread.Stop();
    m_Camera.RemoveObserver(&observer);
    engine.UAC_DisableAudioStream();

    std::printf("counter audio_copied_per_byte %.17g\n",
                static_cast<double>(sum.copied_bytes) / (kFrames * double{kBlock}));
    Count("audio", kTransfers, sum);
    // Packets into the buffer, the buffer into the block.
    EXPECT_EQ(sum.copied_bytes, 2 * kFrames * kBlock);
    EXPECT_EQ(sum.allocations, 0u);
    EXPECT_EQ(sum.signals, uint64_t{kTransfers});
    // For each transfer the event round, three looks at the queue that publish it and two that take
    // it and give it back; for each block the delivery.
    EXPECT_EQ(sum.locks, uint64_t{kTransfers} * 6 + kFrames);
    EXPECT_LE(sum.cleared_bytes, uint64_t{kFrames} * 512);
}

}  // namespace
}  // namespace test
