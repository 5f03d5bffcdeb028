#include "QuorCustomerService/Message/KXCSPullLeaveMessage.h"

#include "Message/KXContentTypeDefinition.h"
#include "Message/KXJsonReader.h"
#include "Support/KXLog.h"

namespace quor {

KX_RECEIVED_CONTENT_TYPE(KXCSPullLeaveMessage, "KX:CsPLM", 1)

void KXCSPullLeaveMessage::decodeWithData(const KXData& data) {
  // The error line names the leave-message class, as the desk tooling expects.
  const auto body =
      KXJsonReader::readBody(data, KX_LOG_TAG, "ERROR: KXCSLeaveMessage JSON is nil!!");
  if (!body) return;
  content_ = KXJsonReader::string(*body, "content");
  KXLog::info(KX_LOG_TAG, "KX:CsPLM JSON is : %@", {*body});
}

KXString KXCSPullLeaveMessage::conversationDigest() const { return content_; }

}  // namespace quor
