#include "QuorCustomerService/Message/KXCSChangeModeMessage.h"

#include <nlohmann/json.hpp>

#include "Message/KXContentTypeDefinition.h"
#include "Message/KXJsonWriter.h"

namespace quor {

KX_SENT_CONTENT_TYPE(KXCSChangeModeMessage, "KX:CsCha", 0)

KXData KXCSChangeModeMessage::encode() {
  KXDictionary body = KXDictionary::object();
  KXJsonWriter::putIdentifiers(body, ids_);
  KXJsonWriter::putString(body, "groupid", groupid_);
  return KXJsonWriter::write(body);
}

}  // namespace quor
