#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

namespace quor {

// A named thread of a host that runs posted work in order, one piece at a time. post() and the
// waiting functions may be called from any thread.
class QuorWorkerThread {
 public:
  // `name` is what QuorHostBase::threadName() answers on this thread.
  explicit QuorWorkerThread(std::string name);
  ~QuorWorkerThread();

  void post(std::function<void()> work);
  // Runs `work` on this thread and waits for it (runs it at once when called on this thread).
  void runAndWait(const std::function<void()>& work);
  // Waits until nothing is queued or running.
  void waitIdle();
  // How many pieces of work have finished.
  uint64_t finished() const;
  bool isCurrent() const { return std::this_thread::get_id() == thread_.get_id(); }

 private:
  void loop();

  const std::string name_;
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<std::function<void()>> queue_;
  bool running_ = false;
  bool stopping_ = false;
  uint64_t finished_ = 0;
  std::thread thread_;
};

}  // namespace quor
