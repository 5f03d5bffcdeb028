#include "QuorHostBase/QuorRawContent.h"

#include "QuorCustomerService/Host/KXHostConstants.h"

namespace quor {

uint32_t QuorRawContent::messagePersistentFlag() const {
  return KXMessagePersistentFlagIsPersisted;
}

}  // namespace quor
