#include "Session/KXCSHandshakes.h"

namespace quor {

void KXCSHandshakes::setTimeout(uint64_t started, std::unique_ptr<KXCSTimer> timeout) {
  if (generation_ == started) timeout_ = std::move(timeout);
}

void KXCSHandshakes::sent(uint64_t handshake) {
  attached_ = outstanding_ = handshake;
  givenUp_ = GivenUp::No;
  sendConfirmed_ = false;
}

void KXCSHandshakes::detach() {
  ++generation_;
  attached_ = 0;
  timeout_.reset();
}

std::pair<KXCSHandshakes::GivenUp, bool> KXCSHandshakes::resolve(uint64_t handshake) {
  if (handshake == 0 || handshake != outstanding_) return {GivenUp::No, false};
  const GivenUp given = givenUp_;
  outstanding_ = 0;
  givenUp_ = GivenUp::No;
  hold_.reset();
  return {given, true};
}

bool KXCSHandshakes::adoptEnded() {
  if (outstanding_ == 0 || givenUp_ != GivenUp::Ended) return false;
  attached_ = outstanding_;
  givenUp_ = GivenUp::No;
  hold_.reset();
  return true;
}

bool KXCSHandshakes::keepForAnswer() {
  if (outstanding_ == 0 || givenUp_ != GivenUp::No) return false;
  giveUp(GivenUp::Ended);
  return true;
}

bool KXCSHandshakes::confirmSent(bool startWaits) {
  if (outstanding_ == 0) return false;
  sendConfirmed_ = true;
  if (givenUp_ != GivenUp::TimedOut) return false;
  givenUp_ = GivenUp::Ended;  // the hold's timer still bounds the wait
  if (!startWaits || attached_ != 0) return false;
  attached_ = outstanding_;
  givenUp_ = GivenUp::No;
  hold_.reset();
  return true;
}

KXCSHandshakes::TimedOut KXCSHandshakes::timedOut() {
  if (outstanding_ == 0) return TimedOut::Nothing;
  if (!sendConfirmed_) {
    giveUp(GivenUp::TimedOut);
    return TimedOut::Keep;
  }
  outstanding_ = 0;
  return TimedOut::Release;
}

void KXCSHandshakes::giveUp(GivenUp how) {
  givenUp_ = how;
  hold_ = std::make_unique<KXCSTimer>(
      kGivenUpHold, [expire = expire_, handshake = outstanding_] { expire(handshake); });
}

}  // namespace quor
