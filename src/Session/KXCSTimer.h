#pragma once

#include <chrono>
#include <cstdint>
#include <functional>

namespace quor {

// Calls `fire` once after `after`, unless destroyed first. Every timer of the process shares one
// thread, started while a timer is pending and gone when none is. The destructor cancels; when
// `fire` is running on that thread just then, it waits for it to return. `fire` must not destroy
// its timer, and should only hand work on (post it to the main thread).
class KXCSTimer {
 public:
  KXCSTimer(std::chrono::milliseconds after, std::function<void()> fire);
  ~KXCSTimer();
  KXCSTimer(const KXCSTimer&) = delete;
  KXCSTimer& operator=(const KXCSTimer&) = delete;

 private:
  uint64_t id_;
};

}  // namespace quor
