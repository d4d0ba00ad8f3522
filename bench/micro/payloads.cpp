// Sends frames through the video engine, or sound through the audio engine, for a tool that counts
// instructions (scripts/bench runs it under callgrind).
//
// Usage: bench_payloads FRAME_BYTES PAYLOAD_BYTES FRAMES      (FRAME_BYTES 0: transfers of sound)
#include <cstdio>
#include <cstdlib>

#include "bench/micro/engines.h"

namespace {

int sound(unsigned transfers) {
    bench::AudioEngine engine;
    for (unsigned i = 0; i < transfers; ++i) {
        if (engine.next_transfer() == 0) {
            return 1;
        }
    }
    return 0;
}

int pictures(uint32_t frame, uint32_t payload, unsigned frames) {
    bench::VideoEngine engine(payload);
    bench::send(bench::Side::kPlugin, {.frame_bytes = frame});
    for (unsigned i = 0; i < frames; ++i) {
        if (engine.next_frame() != frame) {
            return 1;
        }
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 4) {
        std::fprintf(stderr, "usage: bench_payloads FRAME_BYTES PAYLOAD_BYTES FRAMES\n");
        return 2;
    }
    const auto frame = static_cast<uint32_t>(std::strtoul(argv[1], nullptr, 10));
    const auto payload = static_cast<uint32_t>(std::strtoul(argv[2], nullptr, 10));
    const auto frames = static_cast<unsigned>(std::strtoul(argv[3], nullptr, 10));
    return frame == 0 ? sound(frames) : pictures(frame, payload, frames);
}
