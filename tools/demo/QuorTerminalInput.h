#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace quor {

// The terminal's lines, read on a thread of their own, so that the demo's main thread goes on
// showing what the desk says while the customer is idle.
//
// Threads: next() on the main thread; the reader thread reads the standard input until it ends
// and outlives this object (a read cannot be interrupted; the process ends it).
class QuorTerminalInput {
 public:
  QuorTerminalInput();

  // The next line typed, waiting up to `wait` for one; absent when none came.
  std::optional<std::string> next(std::chrono::milliseconds wait);
  // The input ended (and every line typed was taken).
  bool ended() const;

 private:
  struct Shared {
    mutable std::mutex mutex;
    std::condition_variable typed;
    std::deque<std::string> lines;
    bool ended = false;
  };
  std::shared_ptr<Shared> shared_;
};

}  // namespace quor
