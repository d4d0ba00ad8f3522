#include "bench/compare/sections.h"

#include <sched.h>
#include <sys/resource.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <thread>
#include <vector>

#include "bench/compare/bare_wakeup.h"
#include "bench/compare/sides.h"

namespace {
thread_local uint64_t g_slept_us = 0;  // by the calling thread, in usleep
}  // namespace

/// Stands before the C library's for the whole process and counts what the caller slept.
extern "C" int usleep(useconds_t microseconds) {
    g_slept_us += microseconds;
    const timespec pause = {static_cast<time_t>(microseconds / 1000000),
                            static_cast<long>(microseconds % 1000000) * 1000};
    return nanosleep(&pause, nullptr);
}

namespace bench {
namespace {

using nlohmann::json;

constexpr uint32_t kFrames[] = {20'000, 200'000, 1'500'000};
constexpr uint32_t kPayloads[] = {8192, 16384, 65536};
constexpr uint64_t kDeepWindow = 4;  // the plug-in has five buffers, one of which is being filled
constexpr double kMillion = 1e6;
constexpr const char* kSideNames[kSides] = {"plugin", "libuvc", "bare"};

/// So many frames of a size take some 20 ms.
uint64_t frames_for(uint32_t bytes) {
    return std::clamp<uint64_t>(90'000'000 / bytes, 60, 1500);
}

template <typename T>
double quantile(std::vector<T> values, double share) {
    if (values.empty()) {
        return 0;
    }
    std::sort(values.begin(), values.end());
    return static_cast<double>(
        values[static_cast<size_t>(share * static_cast<double>(values.size() - 1))]);
}

json latency_json(const std::vector<uint64_t>& latencies) {
    return {{"p10_us", quantile(latencies, 0.1) / 1000},
            {"median_us", quantile(latencies, 0.5) / 1000},
            {"p90_us", quantile(latencies, 0.9) / 1000}};
}

json outcome_json(const Outcome& outcome, const Consumption& plan) {
    const auto frames = static_cast<double>(std::max<uint64_t>(outcome.received, 1));
    const auto bytes = static_cast<double>(std::max<uint64_t>(outcome.bytes, 1));
    const auto wall = static_cast<double>(std::max<uint64_t>(outcome.wall, 1));
    json result = latency_json(outcome.latencies);
    result["received"] = outcome.received;
    result["lost"] = plan.frames - outcome.received;
    result["out_of_order"] = outcome.out_of_order;
    // The first frame only starts the clocks.
    result["mb_per_s"] = bytes / wall * 1000;
    result["event_ns_per_byte"] = static_cast<double>(outcome.event_cpu) / bytes;
    result["consumer_ns_per_byte"] = static_cast<double>(outcome.consumer_cpu) / bytes;
    result["cpu_ns_per_byte"] =
        static_cast<double>(outcome.event_cpu + outcome.consumer_cpu) / bytes;
    result["voluntary_switches_per_frame"] =
        static_cast<double>(outcome.voluntary_switches) / frames;
    result["switches_per_frame"] =
        static_cast<double>(outcome.voluntary_switches + outcome.involuntary_switches) / frames;
    result["cpu_share"] = static_cast<double>(outcome.event_cpu + outcome.consumer_cpu) / wall;
    return result;
}

uint64_t thread_cpu_ns() {
    timespec time;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<uint64_t>(time.tv_sec) * 1'000'000'000 + static_cast<uint64_t>(time.tv_nsec);
}

/// The floor of the event thread's work: nanoseconds per byte to copy the same payloads from as many
/// transfer buffers into as many frame buffers as the plug-in has.
class CopyFloor {
  public:
    double measure(uint32_t payload, uint32_t frame, uint64_t frames) {
        cpu_set_t set;
        CPU_ZERO(&set);
        CPU_SET(0, &set);
        std::thread thread([&] {
            sched_setaffinity(0, sizeof set, &set);
            copy(payload, frame, 10);
            const uint64_t begin = thread_cpu_ns();
            copy(payload, frame, frames);
            result_ =
                static_cast<double>(thread_cpu_ns() - begin) / static_cast<double>(frames * frame);
        });
        thread.join();
        return result_;
    }

  private:
    static constexpr size_t kTransfers = 3, kBuffers = 5;

    void copy(uint32_t payload, uint32_t frame, uint64_t frames) {
        const uint32_t room = payload - kPayloadHeader;
        for (uint64_t i = 0; i < frames; ++i) {
            for (uint32_t offset = 0; offset < frame; offset += room) {
                std::memcpy(buffers_[i % kBuffers].data() + offset,
                            transfers_[next_++ % kTransfers].data() + kPayloadHeader,
                            std::min(room, frame - offset));
                asm volatile("" ::: "memory");
            }
        }
    }

    std::vector<std::vector<uint8_t>> transfers_{kTransfers, std::vector<uint8_t>(65536 + 512, 1)};
    std::vector<std::vector<uint8_t>> buffers_{kBuffers, std::vector<uint8_t>(0x200000 + 64, 1)};
    size_t next_ = 0;
    double result_ = 0;
};

class Sections {
  public:
    explicit Sections(const Options& options) : options_(options) {}

    json resources();
    json closed();
    json paced();
    json stalls();
    json end();
    json growth();

  private:
    StreamSide& side(Side which) {
        switch (which) {
            case Side::kPlugin:
                return *plugin_;
            case Side::kLibuvc:
                return *libuvc_;
            default:
                return *bare_;
        }
    }
    void open_plugin() {
        if (plugin_ == nullptr) {
            plugin_ = make_plugin_side(options_.plugin);
        }
    }
    void open_both() {
        open_plugin();
        if (libuvc_ == nullptr) {
            libuvc_ = make_libuvc_side();
        }
    }
    void start_both(uint32_t payload) {
        open_both();
        set_payload_bytes(payload);
        plugin_->start();
        libuvc_->start();
    }
    void stop_both() {
        plugin_->stop();
        libuvc_->stop();
    }
    json run_side(Side which, Traffic traffic, const Consumption& plan) {
        return outcome_json(run(which, side(which).consumer(), traffic, plan), plan);
    }
    json run_closed(Side which, Traffic traffic, const Consumption& plan, uint64_t window) {
        traffic.window = window;
        traffic.header_only_end = which == Side::kPlugin;
        json result = run_side(which, traffic, plan);
        result["side"] = kSideNames[static_cast<int>(which)];
        result["window"] = window;
        return result;
    }
    json closed_cell(uint32_t payload, uint32_t frame, int cores, bool read);
    json paced_cell(uint32_t frame, double rate);

    const Options options_;
    CopyFloor floor_;
    std::unique_ptr<StreamSide> plugin_, libuvc_, bare_;
};

// --- what a stream takes -------------------------------------------------------------------------

uint64_t resident_bytes() {
    std::ifstream status("/proc/self/statm");
    uint64_t pages = 0, resident = 0;
    status >> pages >> resident;
    return resident * static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
}

/// What a step of the host takes, in milliseconds. The devices of this bus answer at once, so what
/// is left beside its work are the waits that belong to it: its own sleeps, rounds of event handling
/// that hold a lock, and the ends of threads.
struct StepTimes {
    std::vector<double> work;           ///< CPU time of the caller
    std::vector<double> beyond_sleeps;  ///< all but its sleeps

    template <typename Step>
    void measure(Step step) {
        g_slept_us = 0;
        const uint64_t begin = now_ns(), cpu = thread_cpu_ns();
        step();
        work.push_back(static_cast<double>(thread_cpu_ns() - cpu) / kMillion);
        beyond_sleeps.push_back(static_cast<double>(now_ns() - begin) / kMillion -
                                static_cast<double>(g_slept_us) / 1000);
    }
};

json Sections::resources() {
    constexpr uint32_t kPayload = 65536, kFrame = 2'000'000;
    constexpr uint64_t kFixed = 5 * (0x200000 + 64) + 3 * (kPayload + 512);
    open_plugin();
    set_payload_bytes(kPayload);
    StepTimes starts, stops;
    uint64_t resident = 0;
    set_sound(32, true);
    for (unsigned i = 0; i < options_.repeats; ++i) {
        const uint64_t before = resident_bytes();
        starts.measure([&] { plugin_->start(); });
        run_closed(Side::kPlugin, {.frame_bytes = kFrame}, {.warm = 10, .frames = 50, .read = true},
                   kDeepWindow);
        if (i == 0) {
            resident = resident_bytes() - before;
        }
        // The capture threads look whether they are asked to stop when something comes.
        send(Side::kPlugin, {.frame_bytes = kFrame, .frames_per_second = 30});
        stops.measure([&] { plugin_->stop(); });
        pause(Side::kPlugin);
    }
    set_sound(0, true);
    return {{"start_ms", quantile(starts.work, 0.5)},
            {"stop_ms", quantile(stops.work, 0.5)},
            {"start_beyond_sleeps_ms", quantile(starts.beyond_sleeps, 0.5)},
            {"stop_beyond_sleeps_ms", quantile(stops.beyond_sleeps, 0.5)},
            {"resident_mib", static_cast<double>(resident) / 0x100000},
            {"resident_beyond_buffers_mib",
             (static_cast<double>(resident) - static_cast<double>(kFixed)) / 0x100000}};
}

// --- as fast as memory allows --------------------------------------------------------------------

/// Three programs in turn: the plug-in and libuvc in lock step, and the plug-in with its queue in
/// use, which libuvc has none of: its only buffer would be overwritten. On one core, where every byte
/// is read, the bare client besides, in lock step.
json Sections::closed_cell(uint32_t payload, uint32_t frame, int cores, bool read) {
    Traffic traffic = {.frame_bytes = frame, .spin = cores == 2, .event_cpu = 0};
    Consumption plan = {
        .warm = 20, .frames = frames_for(frame), .read = read, .cpu = cores == 2 ? 1 : 0};
    json runs = json::array();
    std::vector<double> floors;
    for (unsigned i = 0; i < options_.repeats; ++i) {
        floors.push_back(floor_.measure(payload, frame, plan.frames));
        runs.push_back(run_closed(Side::kPlugin, traffic, plan, 1));
        runs.push_back(run_closed(Side::kLibuvc, traffic, plan, 1));
        runs.push_back(run_closed(Side::kPlugin, traffic, plan, kDeepWindow));
        if (cores == 1 && read) {
            runs.push_back(run_closed(Side::kBare, traffic, plan, 1));
        }
    }
    return {{"payload", payload},
            {"frame", frame},
            {"cores", cores},
            {"read", read},
            {"copy_ns_per_byte", quantile(floors, 0.5)},
            {"runs", std::move(runs)}};
}

json Sections::closed() {
    json cells = json::array();
    bare_ = make_bare_side();
    for (const uint32_t payload : kPayloads) {
        start_both(payload);
        bare_->start();
        for (const uint32_t frame : kFrames) {
            for (const int cores : {1, 2}) {
                for (const bool read : {false, true}) {
                    cells.push_back(closed_cell(payload, frame, cores, read));
                }
            }
        }
        bare_->stop();
        stop_both();
    }
    bare_.reset();
    return cells;
}

// --- at a set rate -------------------------------------------------------------------------------

json Sections::paced_cell(uint32_t frame, double rate) {
    constexpr double kSeconds = 0.4;
    const auto frames = static_cast<uint64_t>(kSeconds * rate);
    Traffic traffic = {
        .frame_bytes = frame, .frames_per_second = rate, .spin = true, .event_cpu = 0};
    const Consumption plan = {
        .warm = 3, .frames = frames, .read = true, .cpu = 1, .open_ended = true};
    json cell = {{"frame", frame}, {"rate", rate}, {"runs", json::array()}};
    for (unsigned i = 0; i < options_.repeats; ++i) {
        for (const Side which : {Side::kPlugin, Side::kLibuvc}) {
            cell["runs"].push_back(run_closed(which, traffic, plan, 0));
        }
        json bare = latency_json(bare_wakeups(0, 1, rate, static_cast<int>(frames), true));
        bare["side"] = "bare";
        cell["runs"].push_back(bare);
    }
    return cell;
}

json Sections::paced() {
    json cells = json::array();
    start_both(16384);
    for (const double rate : {30.0, 200.0}) {
        for (const uint32_t frame : kFrames) {
            cells.push_back(paced_cell(frame, rate));
        }
    }
    stop_both();
    return cells;
}

json Sections::stalls() {
    start_both(16384);
    const Traffic traffic = {.frame_bytes = 200'000, .frames_per_second = 200, .event_cpu = 0};
    const Consumption plan = {.warm = 5,
                              .frames = 300,
                              .cpu = 1,
                              .stall_every = 50,
                              .stall_us = 15000,
                              .open_ended = true};
    const json result = {{"plugin", run_closed(Side::kPlugin, traffic, plan, 0)},
                         {"libuvc", run_closed(Side::kLibuvc, traffic, plan, 0)}};
    stop_both();
    return result;
}

/// Frames that end with a header of its own, for both sides alike.
json Sections::end() {
    constexpr double kRate = 30;
    start_both(16384);
    const Traffic traffic = {.frame_bytes = 200'000, .frames_per_second = kRate, .event_cpu = 0};
    const Consumption plan = {.warm = 3, .frames = 30, .cpu = 1, .open_ended = true};
    json result;
    for (const Side which : {Side::kPlugin, Side::kLibuvc}) {
        json one = run_side(which, traffic, plan);
        // The lower tenth: what other programs add says nothing of the end of a frame.
        one["share_of_period"] = one["p10_us"].get<double>() / (kMillion / kRate);
        result[kSideNames[static_cast<int>(which)]] = one;
    }
    stop_both();
    return result;
}

// --- how cost grows ------------------------------------------------------------------------------

json Sections::growth() {
    open_plugin();
    const auto measure = [&](uint32_t payload, uint32_t frame, double rate, int substreams) {
        const auto frames = static_cast<uint64_t>(0.5 * rate);
        const Traffic traffic = {.frame_bytes = frame,
                                 .substreams = substreams,
                                 .frames_per_second = rate,
                                 .event_cpu = 0};
        const Consumption plan = {.warm = 2, .frames = frames, .cpu = 1, .open_ended = true};
        std::vector<double> shares, switches;
        for (unsigned i = 0; i < std::min(options_.repeats, 3U); ++i) {
            const json run = run_closed(Side::kPlugin, traffic, plan, 0);
            shares.push_back(run["cpu_share"]);
            switches.push_back(run["switches_per_frame"]);
        }
        return json{{"payload", payload},
                    {"frame", frame},
                    {"rate", rate},
                    {"substreams", substreams},
                    {"cpu_ms_per_s", quantile(shares, 0.5) * 1000},
                    {"switches_per_frame", quantile(switches, 0.5)}};
    };
    constexpr uint32_t kVga = 307'200 + kFrameHeader, k720 = 921'600 + kFrameHeader,
                       k1080 = 2'073'600 + kFrameHeader;
    json result = {{"resolution", json::array()},
                   {"rate", json::array()},
                   {"payload", json::array()},
                   {"substreams", json::array()}};
    for (const uint32_t payload : {8192U, 16384U, 32768U, 65536U}) {
        set_payload_bytes(payload);
        plugin_->start();
        result["payload"].push_back(measure(payload, k720, 60, 1));
        if (payload == 16384) {
            for (const uint32_t frame : {kVga, k720, k1080}) {
                result["resolution"].push_back(measure(payload, frame, 30, 1));
            }
            for (const double rate : {15.0, 30.0, 60.0, 120.0}) {
                result["rate"].push_back(measure(payload, kVga, rate, 1));
            }
            for (const int substreams : {1, 2, 4, 7}) {
                result["substreams"].push_back(measure(payload, kVga, 120, substreams));
            }
        }
        plugin_->stop();
    }
    return result;
}

}  // namespace

json run_sections(const Options& options, const std::set<std::string>& only) {
    Sections sections(options);
    const struct {
        const char* name;
        json (Sections::*run)();
    } kAll[] = {{"resources", &Sections::resources},
                {"closed", &Sections::closed},
                {"paced", &Sections::paced},
                {"stalls", &Sections::stalls},
                {"end", &Sections::end},
                {"growth", &Sections::growth}};
    json result = {{"raised", options.raised}, {"repeats", options.repeats}};
    for (const auto& section : kAll) {
        if (only.empty() || only.count(section.name) != 0) {
            std::fprintf(stderr, "bench_compare: %s\n", section.name);
            result[section.name] = (sections.*section.run)();
        }
    }
    return result;
}

}  // namespace bench
