#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

namespace quor {

// A named thread of a host that runs posted work in order, one piece at a time. post() and the
// waiting functions may be called from any thread.
//
// The destructor finishes the work already posted. It may run on the thread itself (a host
// whose last owner lets go inside a piece of work): the remaining work then runs at once and
// the thread ends after the current piece, without touching the destroyed object.
class QuorWorkerThread {
 public:
  // `name` is what QuorHostBase::threadName() answers on this thread.
  explicit QuorWorkerThread(std::string name);
  ~QuorWorkerThread();
  QuorWorkerThread(const QuorWorkerThread&) = delete;
  QuorWorkerThread& operator=(const QuorWorkerThread&) = delete;

  void post(std::function<void()> work);
  // Runs `work` on this thread and waits for it (runs it at once when called on this thread).
  void runAndWait(const std::function<void()>& work);
  // Waits until nothing is queued or running.
  void waitIdle();
  // How many pieces of work have finished.
  uint64_t finished() const;
  bool isCurrent() const { return std::this_thread::get_id() == thread_.get_id(); }

 private:
  // Shared with the thread, so that it outlives an object destroyed on its own thread.
  struct State {
    std::mutex mutex;
    std::condition_variable changed;
    std::deque<std::function<void()>> queue;
    bool running = false;
    bool stopping = false;
    uint64_t finished = 0;
  };
  static void loop(const std::shared_ptr<State>& state, const std::string& name);

  const std::shared_ptr<State> state_;
  std::thread thread_;
};

}  // namespace quor
