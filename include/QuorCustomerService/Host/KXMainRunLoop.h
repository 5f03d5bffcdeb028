#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>

#include "QuorCustomerService/Host/KXMainThreadDispatcher.h"

namespace quor {

// The library's default main-thread dispatcher: a queue of closures that the thread the
// application treats as its main thread drains. post() may be called from any thread; the
// run functions must be called from the main thread only (one thread at a time).
// Closures run outside the queue's lock, so they may post further closures.
class QUOR_CS_EXPORT KXMainRunLoop : public KXMainThreadDispatcher {
 public:
  KXMainRunLoop();
  ~KXMainRunLoop() override;
  KXMainRunLoop(const KXMainRunLoop&) = delete;
  KXMainRunLoop& operator=(const KXMainRunLoop&) = delete;

  // The process-wide default run loop used when no dispatcher is installed.
  static std::shared_ptr<KXMainRunLoop> defaultRunLoop();

  void post(std::function<void()> closure) override;

  // Runs the closures posted so far and those they post, in order, until the queue is empty.
  // Returns how many ran.
  std::size_t runUntilIdle();
  // Waits up to `timeout` for a closure, then runs it and returns true; false on timeout or
  // after quit().
  bool runOnce(std::chrono::milliseconds timeout);
  // Runs closures as they arrive until quit() is called (from any thread, or from a closure).
  void run();
  void quit();
  // Number of closures waiting.
  std::size_t pendingCount() const;

 private:
  struct Queue;  // the closures, their lock and the quit request
  std::unique_ptr<Queue> queue_;
};

}  // namespace quor
