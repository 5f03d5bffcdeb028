#pragma once

#include <deque>
#include <functional>
#include <mutex>
#include <utility>

namespace quor {

// One handshake at a time across all services. The client keeps one handshake time for every
// desk, and a second handshake confirmed before the first desk answered turns that answer
// stale; so a service's start waits until the handshake before it was answered or given up.
//
// Threads: any. The next start runs in a closure posted to the main thread.
class KXCSStartQueue {
 public:
  static KXCSStartQueue& shared();

  // Runs `begin` now when no handshake is in flight, else after those queued before it; the
  // owner's handshake is then in flight until it calls release().
  void enqueue(const void* owner, std::function<void()> begin);
  // `owner`'s handshake in flight was answered or given up: the next start goes. Nothing when
  // the owner has none in flight.
  void release(const void* owner);
  // Drops the starts `owner` queued and has not begun.
  void withdraw(const void* owner);

 private:
  std::mutex mutex_;
  const void* inFlight_ = nullptr;
  std::deque<std::pair<const void*, std::function<void()>>> waiting_;
};

}  // namespace quor
