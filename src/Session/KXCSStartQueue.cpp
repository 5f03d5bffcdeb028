#include "Session/KXCSStartQueue.h"

#include <algorithm>

#include "Support/KXMainThread.h"

namespace quor {

KXCSStartQueue& KXCSStartQueue::shared() {
  static KXCSStartQueue* queue = new KXCSStartQueue();  // never destroyed: used until exit
  return *queue;
}

void KXCSStartQueue::enqueue(const void* owner, std::function<void()> begin) {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    if (inFlight_) {
      waiting_.emplace_back(owner, std::move(begin));
      return;
    }
    inFlight_ = owner;
  }
  begin();
}

void KXCSStartQueue::release(const void* owner) {
  std::function<void()> next;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    if (inFlight_ != owner || !owner) return;
    inFlight_ = nullptr;
    if (waiting_.empty()) return;
    inFlight_ = waiting_.front().first;
    next = std::move(waiting_.front().second);
    waiting_.pop_front();
  }
  KXMainThread::post(std::move(next));
}

void KXCSStartQueue::withdraw(const void* owner) {
  std::lock_guard<std::mutex> lock(mutex_);
  waiting_.erase(std::remove_if(waiting_.begin(), waiting_.end(),
                                [owner](const auto& entry) { return entry.first == owner; }),
                 waiting_.end());
}

}  // namespace quor
