// Counts calls that cost, while a thread says that the plug-in runs on it.
#pragma once

#include <cstdint>

namespace test {

struct Counted {
    uint64_t copied_bytes;  ///< by memcpy and memmove
    uint64_t cleared_bytes;
    uint64_t allocations;
    uint64_t locks;
    uint64_t signals;
};

/// Of all threads since the start.
Counted counted();
Counted operator-(const Counted& later, const Counted& earlier);

/// Whether the calling thread's calls count; it answers what was so before.
bool count_on_this_thread(bool on);

/// Counts on the calling thread for a scope, or suspends counting.
class Counting {
  public:
    explicit Counting(bool on) : m_Before(count_on_this_thread(on)) {}
    ~Counting() { count_on_this_thread(m_Before); }
    Counting(const Counting&) = delete;
    Counting& operator=(const Counting&) = delete;

  private:
    const bool m_Before;
};

}  // namespace test
