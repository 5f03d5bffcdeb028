#pragma once

#include <deque>
#include <functional>
#include <mutex>
#include <utility>

namespace quor {

// One handshake at a time across all services. The client keeps one handshake time for every
// desk, and a second handshake confirmed before the first desk answered turns that answer
// stale; so a service's start waits until the handshake before it was answered or given up.
class KXCSStartQueue {
 public:
  static KXCSStartQueue& shared();

  // Runs `begin` now when no handshake is in flight, else after those queued before it.
  void enqueue(const void* owner, std::function<void()> begin);
  // `owner`'s handshake was answered or given up (or the owner went away): drops what it
  // queued and lets the next start go, in a closure posted to the main thread.
  void done(const void* owner);

 private:
  std::mutex mutex_;
  const void* inFlight_ = nullptr;
  std::deque<std::pair<const void*, std::function<void()>>> waiting_;
};

}  // namespace quor
