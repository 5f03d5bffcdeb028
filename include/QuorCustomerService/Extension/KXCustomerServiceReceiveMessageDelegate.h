#pragma once

#include <memory>

#include "QuorCustomerService/Host/KXMessage.h"
#include "QuorCustomerService/QuorCustomerServiceExport.h"

namespace quor {

// The one path by which received messages enter the library. The client implements it; the
// extension module calls it on the host's delivery thread.
class QUOR_CS_EXPORT KXCustomerServiceReceiveMessageDelegate {
 public:
  virtual ~KXCustomerServiceReceiveMessageDelegate();
  // True when the message was a control message the library consumed.
  virtual bool onCustomerServiceMessageReceived(const std::shared_ptr<KXMessage>& message) = 0;
};

}  // namespace quor
