// Micro-benchmarks of the plug-in's own sources; the options are Google Benchmark's.
#include <benchmark/benchmark.h>
#include <linux/futex.h>
#include <pthread.h>
#include <sched.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <memory>
#include <thread>
#include <vector>

#include "AitOrixCamera.h"
#include "CFrameBuf.h"
#include "PayloadParser.h"
#include "StaticSyncQueue.h"
#include "aitdbg.h"
#include "bench/micro/engines.h"

namespace bench {
namespace {

using benchmark::State;

uint32_t range32(const State& state, int index) {
    return static_cast<uint32_t>(state.range(static_cast<size_t>(index)));
}

void frames_and_payloads(benchmark::internal::Benchmark* cases) {
    cases->ArgsProduct({{20'000, 200'000, 1'500'000}, {8192, 16384, 65536}})
        ->ArgNames({"frame", "payload"});
}

// --- payloads ------------------------------------------------------------------------------------

/// What reassembly cannot fall below: the same copies and nothing else.
void memcpy_floor(State& state) {
    const uint32_t frame = range32(state, 0), room = range32(state, 1) - kPayloadHeader;
    std::vector<std::vector<uint8_t>> transfers(3, std::vector<uint8_t>(room + kPayloadHeader, 1));
    std::vector<std::vector<uint8_t>> buffers(5, std::vector<uint8_t>(0x200000, 1));
    size_t payload = 0, number = 0;
    for (auto _ : state) {
        for (uint32_t offset = 0; offset < frame; offset += room) {
            std::memcpy(buffers[number % 5].data() + offset,
                        transfers[payload++ % 3].data() + kPayloadHeader,
                        std::min(room, frame - offset));
            benchmark::ClobberMemory();
        }
        ++number;
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * frame);
}
BENCHMARK(memcpy_floor)->Apply(frames_and_payloads);

/// From the completion of a frame's payloads to the frame in hand, on one thread.
void reassembly(State& state) {
    const uint32_t frame = range32(state, 0);
    VideoEngine engine(range32(state, 1));
    send(Side::kPlugin, {.frame_bytes = frame});
    for (auto _ : state) {
        benchmark::DoNotOptimize(engine.next_frame());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * frame);
}
BENCHMARK(reassembly)->Apply(frames_and_payloads);

/// A payload that adds nothing to a frame; the bus's own share is in it.
void empty_payload(State& state, PayloadKind kind) {
    VideoEngine engine(16384);
    send(Side::kPlugin, {.frame_bytes = 1, .kind = kind});
    for (auto _ : state) {
        engine.round();
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) *
                            VideoEngine::kPayloadsOfRound);
}
BENCHMARK_CAPTURE(empty_payload, header_only, PayloadKind::kHeaderOnly);
BENCHMARK_CAPTURE(empty_payload, error_bit, PayloadKind::kErrorBit);
BENCHMARK_CAPTURE(empty_payload, bad_header, PayloadKind::kBadHeader);

void audio_completion(State& state) {
    AudioEngine engine;
    for (auto _ : state) {
        benchmark::DoNotOptimize(engine.next_transfer());
    }
}
BENCHMARK(audio_completion);

/// Buffers, queue, transfers and negotiation; the stop is not timed.
void stream_start(State& state) {
    VideoEngine engine(16384);
    for (auto _ : state) {
        state.PauseTiming();
        engine.UVC_DisableVideoStream();
        state.ResumeTiming();
        engine.UVC_EnableVideoStream(4, 5, 30);
    }
}
BENCHMARK(stream_start)->Iterations(20)->Unit(benchmark::kMillisecond);

// --- hand-over between two threads ---------------------------------------------------------------

/// Two one-way roads make a round trip: what is timed is two hand-overs.
template <typename Road>
void round_trip(State& state) {
    Road there, back;
    std::atomic<bool> stop{false};
    std::thread other([&] {
        while (there.take() && !stop) {
            back.give();
        }
    });
    for (auto _ : state) {
        there.give();
        back.take();
    }
    stop = true;
    there.give();
    other.join();
}

class QueueRoad {
  public:
    void give() {
        queue_.GetWritePtr(-1);
        queue_.WriteDone();
    }
    bool take() {
        while (queue_.GetReadPtr() == nullptr) {
        }
        queue_.ReadDone();
        return true;
    }

  private:
    CFrameBuf frames_[5] = {CFrameBuf(16), CFrameBuf(16), CFrameBuf(16), CFrameBuf(16),
                            CFrameBuf(16)};
    CFrameBuf* slots_[5] = {&frames_[0], &frames_[1], &frames_[2], &frames_[3], &frames_[4]};
    StaticSyncQueue<CFrameBuf*> queue_{slots_, 5};
};

class ConditionRoad {
  public:
    void give() {
        pthread_mutex_lock(&mutex_);
        ++given_;
        pthread_mutex_unlock(&mutex_);
        pthread_cond_signal(&changed_);
    }
    bool take() {
        pthread_mutex_lock(&mutex_);
        while (given_ == 0) {
            pthread_cond_wait(&changed_, &mutex_);
        }
        --given_;
        pthread_mutex_unlock(&mutex_);
        return true;
    }

  private:
    pthread_mutex_t mutex_ = PTHREAD_MUTEX_INITIALIZER;
    pthread_cond_t changed_ = PTHREAD_COND_INITIALIZER;
    int given_ = 0;
};

class FutexRoad {
  public:
    void give() {
        given_.store(1);
        syscall(SYS_futex, &given_, FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0);
    }
    bool take() {
        while (given_.load() == 0) {
            syscall(SYS_futex, &given_, FUTEX_WAIT_PRIVATE, 0, nullptr, nullptr, 0);
        }
        given_.store(0);
        return true;
    }

  private:
    std::atomic<uint32_t> given_{0};
};

BENCHMARK_TEMPLATE(round_trip, QueueRoad)->UseRealTime();
BENCHMARK_TEMPLATE(round_trip, ConditionRoad)->UseRealTime();
BENCHMARK_TEMPLATE(round_trip, FutexRoad)->UseRealTime();

// --- capture thread ------------------------------------------------------------------------------

void parser(State& state) {
    static constexpr uint16_t kFormats[] = {0x2B, 0x35, 0x2C, 0x2D, 0x2A, 0x2F, 0x29};
    constexpr uint32_t kData = 1024;
    std::vector<uint8_t> frame;
    for (uint32_t i = 0; i < range32(state, 0); ++i) {
        TmkFramebaseHeader header = {};
        header.wHeaderLen = sizeof header - 4;
        header.wStreamType = kFormats[i];
        header.dwReserved = header.dwPlayloadSize = kData;
        const auto* bytes = reinterpret_cast<const uint8_t*>(&header);
        frame.insert(frame.end(), bytes, bytes + sizeof header);
        frame.resize(frame.size() + kData);
    }
    AitH264_MediaSample sample;
    for (auto _ : state) {
        H264Parser_tmk_mode(frame.data(), static_cast<unsigned>(frame.size()), &sample);
        benchmark::DoNotOptimize(sample);
    }
}
BENCHMARK(parser)->DenseRange(1, 7)->ArgName("substreams");

class Observer : public ICameraObserver {
  public:
    bool Update(const CCameraData* data) override {
        benchmark::DoNotOptimize(data);
        return true;
    }
};

void dispatch(State& state) {
    static CAitOrixCamera camera;
    std::vector<std::unique_ptr<Observer>> observers;
    for (uint32_t i = 0; i < range32(state, 0); ++i) {
        observers.push_back(std::make_unique<Observer>());
        observers.back()->m_StreamType = CAM_STREAM_H264_MAIN;
        camera.RegisterObserver(observers.back().get());
    }
    CCameraExtData data = {};
    data.m_type = CAM_STREAM_H264_MAIN;
    for (auto _ : state) {
        camera.OnFrameArrival(&data);
    }
    for (const auto& observer : observers) {
        camera.RemoveObserver(observer.get());
    }
}
BENCHMARK(dispatch)->Arg(0)->Arg(1)->Arg(2)->Arg(4)->Arg(8)->Arg(16)->Arg(32)->Arg(64)->ArgName(
    "observers");

int expensive(int& calls) {
    return ++calls;
}

void log_below_level(State& state) {
    int calls = 0;
    for (auto _ : state) {
        AIT_LOG(5, "%d", expensive(calls));
        benchmark::ClobberMemory();
    }
    if (calls != 0) {
        state.SkipWithError("an argument below the level was evaluated");
    }
}
BENCHMARK(log_below_level);

}  // namespace
}  // namespace bench

BENCHMARK_MAIN();
