#include "QuorCustomerService/Message/KXCSPullEvaluateMessage.h"

#include "Message/KXContentTypeDefinition.h"
#include "Message/KXJsonReader.h"
#include "Support/KXLog.h"

namespace quor {

KX_RECEIVED_CONTENT_TYPE(KXCSPullEvaluateMessage, "KX:CsPullEva", 0)

void KXCSPullEvaluateMessage::decodeWithData(const KXData& data) {
  const auto body =
      KXJsonReader::readBody(data, KX_LOG_TAG, "ERROR: KXCSPullEvaluateMessage JSON is nil!!");
  if (!body) return;
  evaluateId_ = KXJsonReader::string(*body, "msgId");
  KXLog::info(KX_LOG_TAG, "KX:CsPullEva JSON is : %@", {*body});
}

}  // namespace quor
