// Threads that run out in the middle of something.
#pragma once

namespace test {

/// pthread_create fails with EAGAIN once `started` more threads of the code under test have been
/// started; negative: never. reset_system_calls() ends it.
void run_out_of_threads(int started);
/// The same for one thread: those after it start again.
void refuse_one_thread(int started);

}  // namespace test
