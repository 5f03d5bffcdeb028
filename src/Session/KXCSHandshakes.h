#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <utility>

#include "Session/KXCSTimer.h"

namespace quor {

// The handshakes of one service and the starts they serve.
//
// Each start has a generation; each handshake is named by the generation that sent it. The
// client's callbacks of a handshake report while that handshake is attached to the running
// start; a callback of an older one finds another and does nothing. A handshake holds the start
// queue while it is outstanding (sent, neither answered nor failed). When the start that sent
// it is given up before that (ended by the app, timed out), the handshake keeps the queue until
// it resolves, so that its late outcome (the client's stop after a failed send, an answer) never
// lands on a newer start; at most kGivenUpHold.
//
// Threads: not locked; the session calls it under its own lock. Its timers only post.
class KXCSHandshakes {
 public:
  enum class GivenUp { No, Ended, TimedOut };
  static constexpr std::chrono::seconds kGivenUpHold{30};
  // What a hold's end runs (posts), with the handshake it held.
  using Expiry = std::function<void(uint64_t handshake)>;

  explicit KXCSHandshakes(Expiry expire) : expire_(std::move(expire)) {}

  // A new start: its generation.
  uint64_t newStart() { return ++generation_; }
  bool isCurrent(uint64_t started) const { return generation_ == started; }
  // Keeps the timeout of start `started`, while it is the running one.
  void setTimeout(uint64_t started, std::unique_ptr<KXCSTimer> timeout);
  // The running start was answered: its timeout goes.
  void clearTimeout() { timeout_.reset(); }
  // The handshake of start `handshake` leaves for the desk.
  void sent(uint64_t handshake);
  bool attached(uint64_t handshake) const { return handshake == attached_; }
  GivenUp givenUp() const { return givenUp_; }

  // The running start ends: no handshake reports to it any more, and its timeout goes.
  void detach();
  // Handshake `handshake` was answered or failed: what it was given up as (No when it was not
  // given up or not outstanding), and whether it held the queue.
  std::pair<GivenUp, bool> resolve(uint64_t handshake);
  // A new start: when the app ended a start whose handshake is still on its way, that
  // handshake's answer serves the new one (true).
  bool adoptEnded();
  // The app ends the start: a handshake sent and not yet answered is kept for its answer (true),
  // so the answer cannot be taken for another handshake's.
  bool keepForAnswer();
  // The host confirmed the outstanding handshake. When its start had timed out, the desk got it
  // and may still answer: that answer serves the next start, as after an end; a start that waits
  // meanwhile (`startWaits`) takes it over now (true).
  bool confirmSent(bool startWaits);
  // The handshake timeout of the running start: Keep when the send has no outcome yet (a late
  // failure would stop the next start's service; a late success may still be answered), Release
  // when the handshake held the queue, else Nothing.
  enum class TimedOut { Nothing, Keep, Release };
  TimedOut timedOut();

 private:
  void giveUp(GivenUp how);

  const Expiry expire_;
  uint64_t generation_ = 0;
  uint64_t attached_ = 0;     // the handshake whose callbacks report to the running start
  uint64_t outstanding_ = 0;  // the handshake that holds the start queue
  GivenUp givenUp_ = GivenUp::No;
  bool sendConfirmed_ = false;
  std::unique_ptr<KXCSTimer> timeout_;
  std::unique_ptr<KXCSTimer> hold_;
};

}  // namespace quor
