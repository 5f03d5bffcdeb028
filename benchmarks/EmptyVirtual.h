// The reference for the receive path: a virtual call that does nothing, defined in its own
// translation unit so the compiler cannot inline it away.
#pragma once

#include <memory>

#include "QuorCustomerService/Host/KXMessage.h"

namespace quor::bench {

struct EmptyVirtual {
  virtual ~EmptyVirtual();
  virtual bool call(const std::shared_ptr<KXMessage>& message, bool offline);
  static std::unique_ptr<EmptyVirtual> make();
};

}  // namespace quor::bench
