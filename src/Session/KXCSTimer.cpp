#include "Session/KXCSTimer.h"

#include <condition_variable>
#include <map>
#include <mutex>
#include <thread>
#include <unordered_map>
#include <utility>

namespace quor {
namespace {

using Clock = std::chrono::steady_clock;

// The pending timers in the order they fire, and the one thread that fires them.
class Schedule {
 public:
  static Schedule& shared() {
    static Schedule* schedule = new Schedule();  // never destroyed: its thread may outlive main
    return *schedule;
  }

  uint64_t add(Clock::time_point when, std::function<void()> fire) {
    std::lock_guard<std::mutex> lock(mutex_);
    const uint64_t id = ++lastId_;
    pending_.emplace(std::make_pair(when, id), std::move(fire));
    due_[id] = when;
    if (!running_) {
      running_ = true;
      std::thread([this] { run(); }).detach();
    } else {
      changed_.notify_all();
    }
    return id;
  }

  void cancel(uint64_t id) {
    std::unique_lock<std::mutex> lock(mutex_);
    const auto due = due_.find(id);
    if (due != due_.end()) {
      pending_.erase({due->second, id});
      due_.erase(due);
      return;
    }
    // Firing now on the timer thread: wait until it returned, unless this is that thread.
    if (std::this_thread::get_id() == thread_) return;
    changed_.wait(lock, [&] { return firing_ != id; });
  }

 private:
  void run() {
    std::unique_lock<std::mutex> lock(mutex_);
    thread_ = std::this_thread::get_id();
    while (!pending_.empty()) {
      const auto first = pending_.begin();
      // A copy: the timer may be cancelled (its entry erased) while this waits.
      const Clock::time_point due = first->first.first;
      if (Clock::now() < due) {
        changed_.wait_until(lock, due);
        continue;
      }
      const uint64_t id = first->first.second;
      auto fire = std::move(first->second);
      pending_.erase(first);
      due_.erase(id);
      firing_ = id;
      lock.unlock();
      fire();
      lock.lock();
      firing_ = 0;
      changed_.notify_all();
    }
    running_ = false;
    thread_ = std::thread::id();
  }

  std::mutex mutex_;
  std::condition_variable changed_;
  std::map<std::pair<Clock::time_point, uint64_t>, std::function<void()>> pending_;
  std::unordered_map<uint64_t, Clock::time_point> due_;
  uint64_t lastId_ = 0;
  uint64_t firing_ = 0;
  bool running_ = false;
  std::thread::id thread_;
};

}  // namespace

KXCSTimer::KXCSTimer(std::chrono::milliseconds after, std::function<void()> fire)
    : id_(Schedule::shared().add(Clock::now() + after, std::move(fire))) {}

KXCSTimer::~KXCSTimer() { Schedule::shared().cancel(id_); }

}  // namespace quor
