#include "Session/KXCSTimer.h"

namespace quor {

KXCSTimer::KXCSTimer(std::chrono::milliseconds after, std::function<void()> fire)
    : thread_([this, after, fire = std::move(fire)] {
        std::unique_lock<std::mutex> lock(mutex_);
        if (cancelled_.wait_for(lock, after, [this] { return cancel_; })) return;
        lock.unlock();
        fire();
      }) {}

KXCSTimer::~KXCSTimer() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    cancel_ = true;
  }
  cancelled_.notify_all();
  thread_.join();
}

}  // namespace quor
