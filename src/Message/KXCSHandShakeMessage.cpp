#include "QuorCustomerService/Message/KXCSHandShakeMessage.h"

#include "Message/KXContentTypeDefinition.h"

namespace quor {

KX_SENT_CONTENT_TYPE(KXCSHandShakeMessage, "KX:CsHs", 0)

KXData KXCSHandShakeMessage::encode() { return info_ ? info_->encode() : std::nullopt; }

}  // namespace quor
