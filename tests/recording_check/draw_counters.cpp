// Writes a Y4M film of gray pictures that carry the given counters, for tests of check-recording.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "virtcam/model/counter_code.h"

int main(int argc, char** argv) {
    if (argc < 4) {
        std::fputs("usage: draw_counters WIDTH HEIGHT COUNTER...\n", stderr);
        return 2;
    }
    const int width = std::atoi(argv[1]);
    const int height = std::atoi(argv[2]);
    std::vector<uint8_t> luma(static_cast<size_t>(width) * static_cast<size_t>(height), 100);
    const std::vector<uint8_t> chroma(luma.size() / 2, 128);
    std::printf("YUV4MPEG2 W%d H%d F30:1 Ip A1:1 C420jpeg\n", width, height);
    for (int i = 3; i < argc; ++i) {
        const auto counter = static_cast<uint32_t>(std::strtoul(argv[i], nullptr, 0));
        virtcam::model::draw_counter(luma.data(), width, height, width, counter);
        std::puts("FRAME");
        std::fwrite(luma.data(), 1, luma.size(), stdout);
        std::fwrite(chroma.data(), 1, chroma.size(), stdout);
    }
    return 0;
}
