// Threads that run out in the middle of something.
#pragma once

namespace test {

/// pthread_create fails with EAGAIN once `started` more threads of the code under test have been
/// started; negative: never. reset_system_calls() ends it.
void run_out_of_threads(int started);

}  // namespace test
