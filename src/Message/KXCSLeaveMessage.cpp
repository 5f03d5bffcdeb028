#include "QuorCustomerService/Message/KXCSLeaveMessage.h"

#include "Message/KXContentTypeDefinition.h"
#include "Message/KXJsonWriter.h"

namespace quor {

KX_SENT_CONTENT_TYPE(KXCSLeaveMessage, "KX:CsLM", 0)

KXData KXCSLeaveMessage::encode() {
  return leaveMessageDic_ ? KXJsonWriter::write(*leaveMessageDic_) : std::nullopt;
}

}  // namespace quor
