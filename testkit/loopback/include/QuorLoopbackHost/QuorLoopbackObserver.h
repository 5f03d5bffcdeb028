#pragma once

#include <memory>
#include <string>

#include "QuorCustomerService/Host/KXMessage.h"
#include "QuorCustomerService/Host/KXMessageContentType.h"
#include "QuorHostBase/QuorLogEntry.h"
#include "QuorHostBase/QuorOutgoingSend.h"
#include "QuorLoopbackHost/QuorWireMessage.h"

namespace quor {

// Watches everything the library asks of the host. Every function is called on the thread
// where the event happens, in the order the events happen on that thread. The defaults do
// nothing.
class QuorLoopbackObserver {
 public:
  virtual ~QuorLoopbackObserver() = default;
  virtual void onRegister(const KXMessageContentType&) {}
  virtual void onSend(const QuorOutgoingSend&) {}
  virtual void onInsert(const std::shared_ptr<KXMessage>& /*record, null when failed*/,
                        const std::string& /*thread*/) {}
  virtual void onFakeReceive(const std::shared_ptr<KXMessage>&, const std::string& /*thread*/) {}
  virtual void onLog(const QuorLogEntry&) {}
  // A message crossing the channel: from the application to the peer, or back.
  virtual void onWire(const QuorWireMessage&, bool /*fromClient*/) {}
};

}  // namespace quor
