// Counts heap allocations and live bytes of the whole benchmark process (a replaced global
// operator new), so benchmarks can report allocations per call and bytes per session.
#pragma once

#include <cstddef>
#include <cstdint>

namespace quor::bench {

struct AllocationCounter {
  static uint64_t allocations();
  static int64_t liveBytes();
};

}  // namespace quor::bench
