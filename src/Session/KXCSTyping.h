#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>

#include "Session/KXCSTimer.h"

namespace quor {

// The customer's typing as the desk hears it: "typing" when typing begins and nothing more
// while it goes on; "stopped" once `pause` passed without a keystroke, or when the app says the
// customer left the input. A "typing" goes out at most once per `interval`, however the
// customer types and pauses; a sent line or the service's end forgets the state and sends
// nothing (the line itself tells the desk the typing is over).
//
// Threads: the main thread. The pause's timer calls `due` on the timer's thread, which posts
// pauseDue() to the main thread.
class KXCSTyping {
 public:
  using Clock = std::chrono::steady_clock;
  using Tell = std::function<void(bool typing)>;
  using Due = std::function<void(uint64_t generation)>;
  static constexpr std::chrono::milliseconds kInterval{5000};
  static constexpr std::chrono::milliseconds kPause{5000};

  KXCSTyping(Tell tell, Due due, std::chrono::milliseconds interval = kInterval,
             std::chrono::milliseconds pause = kPause);

  // A keystroke at `now`.
  void keystroke(Clock::time_point now = Clock::now());
  // The customer left the input: "stopped" when "typing" was told.
  void stop();
  // A line was sent or the service ended: nothing is told, and a pending pause is dropped.
  void forget();
  // The pause's timer of `generation` fired (on the main thread).
  void pauseDue(uint64_t generation, Clock::time_point now = Clock::now());

 private:
  void arm(std::chrono::milliseconds after);

  const Tell tell_;
  const Due due_;
  const std::chrono::milliseconds interval_;
  const std::chrono::milliseconds pause_;
  bool told_ = false;  // "typing" is what the desk heard last
  Clock::time_point lastTold_{};
  Clock::time_point lastKeystroke_{};
  uint64_t generation_ = 0;
  std::unique_ptr<KXCSTimer> timer_;
};

}  // namespace quor
