#include "QuorCustomerService/Host/KXMessageContentType.h"

namespace quor {

KXMessageContentType::KXMessageContentType(std::string objectName, uint32_t persistentFlag,
                                           Factory factory)
    : objectName_(std::move(objectName)),
      persistentFlag_(persistentFlag),
      factory_(std::move(factory)) {}

std::shared_ptr<KXMessageContent> KXMessageContentType::create() const {
  return factory_ ? factory_() : nullptr;
}

}  // namespace quor
