#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

namespace quor {

// Calls `fire` once on its own thread after `after`, unless destroyed first. The destructor
// cancels and waits for the thread; `fire` must not destroy its timer.
class KXCSTimer {
 public:
  KXCSTimer(std::chrono::milliseconds after, std::function<void()> fire);
  ~KXCSTimer();
  KXCSTimer(const KXCSTimer&) = delete;
  KXCSTimer& operator=(const KXCSTimer&) = delete;

 private:
  std::mutex mutex_;
  std::condition_variable cancelled_;
  bool cancel_ = false;
  std::thread thread_;
};

}  // namespace quor
