#include "QuorCustomerService/Message/KXCSTerminateMessage.h"

#include <nlohmann/json.hpp>

#include "Message/KXContentTypeDefinition.h"
#include "Message/KXJsonReader.h"
#include "Support/KXLog.h"

namespace quor {

KX_RECEIVED_CONTENT_TYPE(KXCSTerminateMessage, "KX:CsEnd", 0)

void KXCSTerminateMessage::decodeWithData(const KXData& data) {
  const auto body =
      KXJsonReader::readBody(data, KX_LOG_TAG, "ERROR: KXCSTerminateMessage JSON is nil!!");
  if (!body) return;
  code_ = KXJsonReader::integer(*body, "code");
  msg_ = KXJsonReader::string(*body, "msg");
  // The desk names the service under "cid" or "sid"; "cid" wins, and a null "cid" counts as
  // present (it then reads as the text "null").
  if (const KXDictionary* cid = KXJsonReader::find(&*body, "cid")) {
    cid_ = cid->is_null() ? KXString("null") : KXJsonReader::string(cid);
  } else {
    cid_ = KXJsonReader::string(*body, "sid");
  }
  KXLog::info(KX_LOG_TAG, "KX:CsEnd JSON is : %@", {*body});
}

}  // namespace quor
