#include "QuorCustomerService/Message/KXCSUpdateMessage.h"

#include "Message/KXContentTypeDefinition.h"
#include "Message/KXJsonReader.h"
#include "Support/KXLog.h"

namespace quor {

KX_RECEIVED_CONTENT_TYPE(KXCSUpdateMessage, "KX:CsUpdate", 0)

void KXCSUpdateMessage::decodeWithData(const KXData& data) {
  const auto body =
      KXJsonReader::readBody(data, KX_LOG_TAG, "ERROR: KXCSUpdateMessage JSON is nil!!");
  if (!body) return;
  cid_ = KXJsonReader::string(*body, "sid");
  serviceStatus_ = KXJsonReader::integer(*body, "serviceStatus");
  KXLog::info(KX_LOG_TAG, "KX:CsUpdate JSON is : %@", {*body});
}

}  // namespace quor
