// Short memory: the plug-in's allocations that report failure (operator new with std::nothrow) are
// link-wrapped and fail when a test says so.
#pragma once

#include <stddef.h>

#include <vector>

namespace test {

/// The `n`-th such allocation from now, from 1, fails, once; 0: none.
void fail_allocation(int n);
/// Whether the failure asked for last is still to come.
bool allocation_failure_pending();

/// Sizes of the arrays allocated so since the last call, in order.
std::vector<size_t> take_array_sizes();

}  // namespace test
