// What a consumer does with a frame that it reads.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace bench {

/// Reads every byte, in words wide enough that memory is what it waits for.
inline uint64_t sum_of(const uint8_t* data, size_t size) {
    typedef uint64_t Words __attribute__((vector_size(16)));
    constexpr size_t kAtOnce = 8;
    Words sums[kAtOnce] = {};
    size_t i = 0;
    for (; i + sizeof sums <= size; i += sizeof sums) {
        for (size_t j = 0; j < kAtOnce; ++j) {
            Words words;
            std::memcpy(&words, data + i + j * sizeof words, sizeof words);
            sums[j] += words;
        }
    }
    uint64_t sum = 0;
    for (; i < size; ++i) {
        sum += data[i];
    }
    for (const Words& words : sums) {
        sum += words[0] + words[1];
    }
    return sum;
}

}  // namespace bench
