#include "QuorCustomerService/Message/KXCSSuspendMessage.h"

#include <nlohmann/json.hpp>

#include "Message/KXContentTypeDefinition.h"
#include "Message/KXJsonWriter.h"

namespace quor {

KX_SENT_CONTENT_TYPE(KXCSSuspendMessage, "KX:CsSp", 0)

KXData KXCSSuspendMessage::encode() {
  KXDictionary body = KXDictionary::object();
  KXJsonWriter::putIdentifiers(body, ids_);
  return KXJsonWriter::write(body);
}

}  // namespace quor
