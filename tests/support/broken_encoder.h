// An H.264 encoder that cannot be used, or takes its time. broken_encoder.cpp takes the place of the
// library's entry, linked into a test or preloaded into a program.
#pragma once

#include <atomic>

namespace test {

/// True: no encoder can be created any more. Starts so where the environment has BROKEN_ENCODER.
extern std::atomic<bool> encoder_is_broken;

/// While one lives, whoever makes an encoder waits. The destructor lets all go on.
class HeldEncoder {
  public:
    HeldEncoder();
    HeldEncoder(const HeldEncoder&) = delete;
    HeldEncoder& operator=(const HeldEncoder&) = delete;
    ~HeldEncoder();

    /// Returns once somebody waits; false after 20 s without.
    static bool is_reached();
};

}  // namespace test
