#include "QuorCustomerService/Host/KXMainRunLoop.h"

namespace quor {

KXMainRunLoop::~KXMainRunLoop() = default;

std::shared_ptr<KXMainRunLoop> KXMainRunLoop::defaultRunLoop() {
  // Never destroyed: closures may still be posted while the process exits.
  static auto* loop = new std::shared_ptr<KXMainRunLoop>(std::make_shared<KXMainRunLoop>());
  return *loop;
}

void KXMainRunLoop::post(std::function<void()> closure) {
  if (!closure) return;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    queue_.push_back(std::move(closure));
  }
  wake_.notify_one();
}

std::function<void()> KXMainRunLoop::take() {
  std::lock_guard<std::mutex> lock(mutex_);
  if (queue_.empty()) return nullptr;
  auto closure = std::move(queue_.front());
  queue_.pop_front();
  return closure;
}

std::size_t KXMainRunLoop::runUntilIdle() {
  std::size_t count = 0;
  while (auto closure = take()) {
    closure();
    ++count;
  }
  return count;
}

bool KXMainRunLoop::runOnce(std::chrono::milliseconds timeout) {
  std::function<void()> closure;
  {
    std::unique_lock<std::mutex> lock(mutex_);
    wake_.wait_for(lock, timeout, [this] { return !queue_.empty() || quitRequested_; });
    if (quitRequested_) {
      quitRequested_ = false;
      return false;
    }
    if (queue_.empty()) return false;
    closure = std::move(queue_.front());
    queue_.pop_front();
  }
  closure();
  return true;
}

void KXMainRunLoop::run() {
  for (;;) {
    std::function<void()> closure;
    {
      std::unique_lock<std::mutex> lock(mutex_);
      wake_.wait(lock, [this] { return !queue_.empty() || quitRequested_; });
      if (quitRequested_) {
        quitRequested_ = false;
        return;
      }
      closure = std::move(queue_.front());
      queue_.pop_front();
    }
    closure();
  }
}

void KXMainRunLoop::quit() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    quitRequested_ = true;
  }
  wake_.notify_all();
}

std::size_t KXMainRunLoop::pendingCount() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return queue_.size();
}

}  // namespace quor
