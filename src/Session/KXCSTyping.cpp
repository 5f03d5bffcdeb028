#include "Session/KXCSTyping.h"

#include <utility>

namespace quor {

KXCSTyping::KXCSTyping(Tell tell, Due due, std::chrono::milliseconds interval,
                       std::chrono::milliseconds pause)
    : tell_(std::move(tell)), due_(std::move(due)), interval_(interval), pause_(pause) {}

void KXCSTyping::keystroke(Clock::time_point now) {
  lastKeystroke_ = now;
  if (told_) return;  // the pause's timer is armed and looks at the newest keystroke
  if (lastTold_ != Clock::time_point{} && now - lastTold_ < interval_) return;
  told_ = true;
  lastTold_ = now;
  tell_(true);
  arm(pause_);
}

void KXCSTyping::stop() {
  const bool told = told_;
  forget();
  if (told) tell_(false);
}

void KXCSTyping::forget() {
  told_ = false;
  ++generation_;
  timer_.reset();
}

void KXCSTyping::pauseDue(uint64_t generation, Clock::time_point now) {
  if (generation != generation_ || !told_) return;
  const auto quiet = now - lastKeystroke_;
  if (quiet < pause_) {
    arm(std::chrono::duration_cast<std::chrono::milliseconds>(pause_ - quiet));
    return;
  }
  stop();
}

void KXCSTyping::arm(std::chrono::milliseconds after) {
  const uint64_t generation = ++generation_;
  timer_ = std::make_unique<KXCSTimer>(after, [due = due_, generation] { due(generation); });
}

}  // namespace quor
