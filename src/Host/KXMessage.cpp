#include "QuorCustomerService/Host/KXMessage.h"

namespace quor {

KXMessage::KXMessage(int32_t conversationType, KXString targetId, int32_t messageDirection,
                     int64_t messageId, std::shared_ptr<KXMessageContent> content)
    : conversationType_(conversationType),
      targetId_(std::move(targetId)),
      messageDirection_(messageDirection),
      messageId_(messageId),
      objectName_(content ? KXString(content->objectName()) : std::nullopt),
      content_(std::move(content)) {}

}  // namespace quor
