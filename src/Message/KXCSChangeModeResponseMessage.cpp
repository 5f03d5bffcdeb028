#include "QuorCustomerService/Message/KXCSChangeModeResponseMessage.h"

#include <nlohmann/json.hpp>

#include "Message/KXContentTypeDefinition.h"
#include "Message/KXJsonReader.h"
#include "Support/KXLog.h"

namespace quor {

KX_RECEIVED_CONTENT_TYPE(KXCSChangeModeResponseMessage, "KX:CsChaR", 0)

void KXCSChangeModeResponseMessage::decodeWithData(const KXData& data) {
  auto body = KXJsonReader::readBody(data, KX_LOG_TAG,
                                     "ERROR: KXCSChangeModeResponseMessage JSON is nil!!");
  if (!body) return;
  // Any true "code" means success.
  if (!KXJsonReader::boolean(*body, "code")) {
    result_ = 2;
    errMsg_ = KXJsonReader::string(*body, "msg");
    return;
  }
  // A "data" that is not an object reads as missing.
  auto payload = body->find("data");
  const bool hasPayload = payload != body->end() && payload->is_object();
  result_ = hasPayload ? KXJsonReader::integer(*payload, "status") : 0;
  // The line shows the whole body, so it is written before "satisfaction" moves out of it.
  KXLog::info(KX_LOG_TAG, "KX:CsChaR JSON is : %@", {*body});
  // "satisfaction" of any value, null included, is wrapped under "evaConfig".
  if (!hasPayload) return;
  const auto satisfaction = payload->find("satisfaction");
  if (satisfaction == payload->end()) return;
  auto wrapper = std::make_shared<KXDictionary>(KXDictionary::object());
  (*wrapper)["evaConfig"] = std::move(*satisfaction);
  evaConfig_ = std::move(wrapper);
}

}  // namespace quor
