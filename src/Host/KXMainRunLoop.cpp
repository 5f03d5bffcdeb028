#include "QuorCustomerService/Host/KXMainRunLoop.h"

#include <condition_variable>
#include <deque>
#include <mutex>

namespace quor {

struct KXMainRunLoop::Queue {
  // The next closure, or null when none waits.
  std::function<void()> take() {
    std::lock_guard<std::mutex> lock(mutex);
    if (closures.empty()) return nullptr;
    auto closure = std::move(closures.front());
    closures.pop_front();
    return closure;
  }

  mutable std::mutex mutex;
  std::condition_variable wake;
  std::deque<std::function<void()>> closures;
  bool quitRequested = false;
};

KXMainRunLoop::KXMainRunLoop() : queue_(std::make_unique<Queue>()) {}
KXMainRunLoop::~KXMainRunLoop() = default;

std::shared_ptr<KXMainRunLoop> KXMainRunLoop::defaultRunLoop() {
  // Never destroyed: closures may still be posted while the process exits.
  static auto* loop = new std::shared_ptr<KXMainRunLoop>(std::make_shared<KXMainRunLoop>());
  return *loop;
}

void KXMainRunLoop::post(std::function<void()> closure) {
  if (!closure) return;
  {
    std::lock_guard<std::mutex> lock(queue_->mutex);
    queue_->closures.push_back(std::move(closure));
  }
  queue_->wake.notify_one();
}

std::size_t KXMainRunLoop::runUntilIdle() {
  std::size_t count = 0;
  while (auto closure = queue_->take()) {
    closure();
    ++count;
  }
  return count;
}

bool KXMainRunLoop::runOnce(std::chrono::milliseconds timeout) {
  std::function<void()> closure;
  {
    std::unique_lock<std::mutex> lock(queue_->mutex);
    queue_->wake.wait_for(lock, timeout,
                          [this] { return !queue_->closures.empty() || queue_->quitRequested; });
    if (queue_->quitRequested) {
      queue_->quitRequested = false;
      return false;
    }
    if (queue_->closures.empty()) return false;
    closure = std::move(queue_->closures.front());
    queue_->closures.pop_front();
  }
  closure();
  return true;
}

void KXMainRunLoop::run() {
  for (;;) {
    std::function<void()> closure;
    {
      std::unique_lock<std::mutex> lock(queue_->mutex);
      queue_->wake.wait(lock,
                        [this] { return !queue_->closures.empty() || queue_->quitRequested; });
      if (queue_->quitRequested) {
        queue_->quitRequested = false;
        return;
      }
      closure = std::move(queue_->closures.front());
      queue_->closures.pop_front();
    }
    closure();
  }
}

void KXMainRunLoop::quit() {
  {
    std::lock_guard<std::mutex> lock(queue_->mutex);
    queue_->quitRequested = true;
  }
  queue_->wake.notify_all();
}

std::size_t KXMainRunLoop::pendingCount() const {
  std::lock_guard<std::mutex> lock(queue_->mutex);
  return queue_->closures.size();
}

}  // namespace quor
