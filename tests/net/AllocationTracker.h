#pragma once

#include <cstddef>

namespace net_test {

// Between these two calls the size of the largest single `new` of the program is recorded.
void StartAllocationTracking();
size_t StopAllocationTracking();

}  // namespace net_test
