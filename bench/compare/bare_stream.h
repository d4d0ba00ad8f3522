// The least that a frame can take in lock step on one core: what bounds both programs.
#pragma once

#include <cstdint>

namespace bench {

/// Nanoseconds per frame of two threads on processor 0 that do nothing else: one copies the payloads
/// of a frame from three transfer buffers into one of five frame buffers, once each, and hands it
/// over by a mutex and a condition variable, signalled after its release; the other reads every
/// byte. The closed loop is that of the bus: the end of frame k waits until frame k - 1 was read.
double bare_lock_step_ns(uint32_t payload, uint32_t frame, uint64_t frames);

}  // namespace bench
