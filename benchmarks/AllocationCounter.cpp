#include "AllocationCounter.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<uint64_t> allocationCount{0};
std::atomic<int64_t> liveByteCount{0};

// Each block carries its size in a header so that delete can subtract it.
constexpr std::size_t kHeader = alignof(std::max_align_t);

void* allocate(std::size_t size) {
  void* block = std::malloc(size + kHeader);
  if (!block) throw std::bad_alloc();
  *static_cast<std::size_t*>(block) = size;
  allocationCount.fetch_add(1, std::memory_order_relaxed);
  liveByteCount.fetch_add(static_cast<int64_t>(size), std::memory_order_relaxed);
  return static_cast<char*>(block) + kHeader;
}

void release(void* pointer) noexcept {
  if (!pointer) return;
  void* block = static_cast<char*>(pointer) - kHeader;
  liveByteCount.fetch_sub(static_cast<int64_t>(*static_cast<std::size_t*>(block)),
                          std::memory_order_relaxed);
  std::free(block);
}

}  // namespace

void* operator new(std::size_t size) { return allocate(size); }
void* operator new[](std::size_t size) { return allocate(size); }
void operator delete(void* pointer) noexcept { release(pointer); }
void operator delete[](void* pointer) noexcept { release(pointer); }
void operator delete(void* pointer, std::size_t) noexcept { release(pointer); }
void operator delete[](void* pointer, std::size_t) noexcept { release(pointer); }

namespace quor::bench {

uint64_t AllocationCounter::allocations() {
  return allocationCount.load(std::memory_order_relaxed);
}
int64_t AllocationCounter::liveBytes() { return liveByteCount.load(std::memory_order_relaxed); }

}  // namespace quor::bench
