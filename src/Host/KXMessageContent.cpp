#include "QuorCustomerService/Host/KXMessageContent.h"

namespace quor {

KXMessageContent::~KXMessageContent() = default;

KXString KXMessageContent::conversationDigest() const { return std::nullopt; }

}  // namespace quor
