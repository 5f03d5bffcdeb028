#pragma once

#include "QuorLoopbackHost/QuorWireMessage.h"

namespace quor {

// The other end of the loopback channel (a desk). The host hands it every message the
// application sends, on the host thread, after the send's outcome was reported.
class QuorLoopbackPeer {
 public:
  virtual ~QuorLoopbackPeer() = default;
  virtual void onMessageFromClient(const QuorWireMessage& message) = 0;
};

}  // namespace quor
