#include "QuorHostBase/QuorWorkerThread.h"

#include "QuorHostBase/QuorHostBase.h"

namespace quor {
namespace {
constexpr int kSpins = 200;
}

QuorWorkerThread::QuorWorkerThread(std::string name)
    : state_(std::make_shared<State>()),
      thread_([state = state_, name = std::move(name)] { loop(state, name); }) {}

QuorWorkerThread::~QuorWorkerThread() {
  if (isCurrent()) {
    // Destroyed by its own work: finish what is queued here and now, then let the thread end
    // by itself once the current piece returns.
    std::deque<std::function<void()>> left;
    {
      std::lock_guard<std::mutex> lock(state_->mutex);
      state_->stopping = true;
      left.swap(state_->queue);
    }
    for (auto& work : left) work();
    thread_.detach();
    return;
  }
  {
    std::lock_guard<std::mutex> lock(state_->mutex);
    state_->stopping = true;
  }
  state_->changed.notify_all();
  thread_.join();
}

void QuorWorkerThread::post(std::function<void()> work) {
  // The work may destroy this object before the notification below: the state stays alive.
  const std::shared_ptr<State> state = state_;
  {
    std::lock_guard<std::mutex> lock(state->mutex);
    state->queue.push_back(std::move(work));
  }
  state->changed.notify_all();
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
  std::unique_lock<std::mutex> lock(state_->mutex);
  state_->changed.wait(lock, [this] { return state_->queue.empty() && !state_->running; });
}

uint64_t QuorWorkerThread::finished() const {
  std::lock_guard<std::mutex> lock(state_->mutex);
  return state_->finished;
}

void QuorWorkerThread::loop(const std::shared_ptr<State>& state, const std::string& name) {
  QuorHostBase::setThreadName(name);
  for (;;) {
    std::function<void()> work;
    {
      std::unique_lock<std::mutex> lock(state->mutex);
      // Stay awake for a moment before sleeping: messages come in bursts, and waking a
      // sleeping thread costs more than the work itself.
      for (int spin = 0; spin < kSpins && state->queue.empty() && !state->stopping; ++spin) {
        lock.unlock();
        std::this_thread::yield();
        lock.lock();
      }
      state->changed.wait(lock, [&] { return !state->queue.empty() || state->stopping; });
      if (state->queue.empty()) return;
      work = std::move(state->queue.front());
      state->queue.pop_front();
      state->running = true;
    }
    work();
    {
      std::lock_guard<std::mutex> lock(state->mutex);
      state->running = false;
      ++state->finished;
    }
    state->changed.notify_all();
  }
}

}  // namespace quor
