#include "QuorHostBase/QuorWorkerThread.h"

#include "QuorHostBase/QuorHostBase.h"

namespace quor {
namespace {
constexpr int kSpins = 200;
}

QuorWorkerThread::QuorWorkerThread(std::string name)
    : name_(std::move(name)), thread_([this] { loop(); }) {}

QuorWorkerThread::~QuorWorkerThread() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    stopping_ = true;
  }
  changed_.notify_all();
  thread_.join();
}

void QuorWorkerThread::post(std::function<void()> work) {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    queue_.push_back(std::move(work));
  }
  changed_.notify_all();
}

void QuorWorkerThread::runAndWait(const std::function<void()>& work) {
  if (isCurrent()) {
    work();
    return;
  }
  std::mutex doneMutex;
  std::condition_variable doneChanged;
  bool done = false;
  post([&] {
    work();
    std::lock_guard<std::mutex> lock(doneMutex);
    done = true;
    doneChanged.notify_all();
  });
  std::unique_lock<std::mutex> lock(doneMutex);
  doneChanged.wait(lock, [&] { return done; });
}

void QuorWorkerThread::waitIdle() {
  std::unique_lock<std::mutex> lock(mutex_);
  changed_.wait(lock, [this] { return queue_.empty() && !running_; });
}

uint64_t QuorWorkerThread::finished() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return finished_;
}

void QuorWorkerThread::loop() {
  QuorHostBase::setThreadName(name_);
  for (;;) {
    std::function<void()> work;
    {
      std::unique_lock<std::mutex> lock(mutex_);
      // Stay awake for a moment before sleeping: messages come in bursts, and waking a
      // sleeping thread costs more than the work itself.
      for (int spin = 0; spin < kSpins && queue_.empty() && !stopping_; ++spin) {
        lock.unlock();
        std::this_thread::yield();
        lock.lock();
      }
      changed_.wait(lock, [this] { return !queue_.empty() || stopping_; });
      if (queue_.empty()) return;
      work = std::move(queue_.front());
      queue_.pop_front();
      running_ = true;
    }
    work();
    {
      std::lock_guard<std::mutex> lock(mutex_);
      running_ = false;
      ++finished_;
    }
    changed_.notify_all();
  }
}

}  // namespace quor
