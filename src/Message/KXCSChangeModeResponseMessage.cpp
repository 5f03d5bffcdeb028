#include "QuorCustomerService/Message/KXCSChangeModeResponseMessage.h"

#include "Host/KXLog.h"
#include "Message/KXContentTypeDefinition.h"
#include "Message/KXJsonReader.h"

namespace quor {

KX_RECEIVED_CONTENT_TYPE(KXCSChangeModeResponseMessage, "KX:CsChaR", 0)

void KXCSChangeModeResponseMessage::decodeWithData(const KXData& data) {
  const auto body = KXJsonReader::readBody(data, KX_LOG_TAG,
                                           "ERROR: KXCSChangeModeResponseMessage JSON is nil!!");
  if (!body) return;
  // Any true "code" means success.
  if (!KXJsonReader::boolean(*body, "code")) {
    result_ = 2;
    errMsg_ = KXJsonReader::string(*body, "msg");
    return;
  }
  // A "data" that is not an object reads as missing.
  const KXDictionary* payload = KXJsonReader::object(KXJsonReader::find(&*body, "data"));
  result_ = KXJsonReader::integer(KXJsonReader::find(payload, "status"));
  // "satisfaction" of any value, null included, is wrapped under "evaConfig".
  if (const KXDictionary* satisfaction = KXJsonReader::find(payload, "satisfaction")) {
    auto wrapper = std::make_shared<KXDictionary>(KXDictionary::object());
    (*wrapper)["evaConfig"] = *satisfaction;
    evaConfig_ = std::move(wrapper);
  }
  KXLog::info(KX_LOG_TAG, "KX:CsChaR JSON is : %@", {*body});
}

}  // namespace quor
