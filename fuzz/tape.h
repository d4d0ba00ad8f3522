// The fuzzer's bytes as they are asked for, one after the other; zeros once they are used up.
#pragma once

#include <cstddef>
#include <cstdint>

namespace fuzz {

class Tape {
  public:
    Tape(const uint8_t* data, size_t size) : at_(data), end_(data + size) {}

    bool empty() const { return at_ == end_; }
    size_t rest() const { return static_cast<size_t>(end_ - at_); }
    uint8_t byte() { return empty() ? 0 : *at_++; }
    uint16_t word() {
        const uint8_t low = byte();
        return static_cast<uint16_t>(low | byte() << 8);
    }
    uint32_t number() {
        const uint32_t low = word();
        return low | static_cast<uint32_t>(word()) << 16;
    }
    void bytes(uint8_t* to, size_t count) {
        for (size_t i = 0; i < count; ++i) {
            to[i] = byte();
        }
    }
    /// The next `count` bytes as a tape of their own.
    Tape cut(size_t count) {
        const uint8_t* begin = at_;
        at_ += count < rest() ? count : rest();
        return {begin, static_cast<size_t>(at_ - begin)};
    }

  private:
    const uint8_t* at_;
    const uint8_t* end_;
};

}  // namespace fuzz
