// The floor of every hand-over between two threads: a bare mutex and condition variable.
#pragma once

#include <cstdint>
#include <vector>

namespace bench {

/// Wakes a thread on `waiter_cpu` from one on `waker_cpu`, `count` times at `per_second`; the time
/// from before the lock is taken to the waiter's first instruction, in nanoseconds each.
std::vector<uint64_t> bare_wakeups(int waker_cpu, int waiter_cpu, double per_second, int count,
                                   bool spin);

}  // namespace bench
