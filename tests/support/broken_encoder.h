// An H.264 encoder that cannot be used. broken_encoder.cpp takes the place of the library's entry,
// linked into a test or preloaded into a program.
#pragma once

#include <atomic>

namespace test {

/// True: no encoder can be created any more. Starts so where the environment has BROKEN_ENCODER.
extern std::atomic<bool> encoder_is_broken;

}  // namespace test
