#include "QuorCustomerService/Host/KXTextMessage.h"

#include <nlohmann/json.hpp>

#include "Message/KXContentTypeDefinition.h"
#include "Message/KXJsonReader.h"
#include "Message/KXJsonWriter.h"

namespace quor {

KX_CONTENT_TYPE(KXTextMessage, "KX:TxtMsg", 1)

std::shared_ptr<KXTextMessage> KXTextMessage::messageWithContent(KXString content) {
  auto message = std::make_shared<KXTextMessage>();
  message->setContent(std::move(content));
  return message;
}

KXData KXTextMessage::encode() {
  KXDictionary body = KXDictionary::object();
  KXJsonWriter::putString(body, "content", content_);
  if (const auto& sender = senderUserInfo()) {
    KXDictionary user = KXDictionary::object();
    KXJsonWriter::putString(user, "id", sender->userId());
    KXJsonWriter::putString(user, "name", sender->name());
    KXJsonWriter::putString(user, "portrait", sender->portraitUri());
    body["user"] = std::move(user);
  }
  return KXJsonWriter::write(body);
}

void KXTextMessage::decodeWithData(const KXData& data) {
  if (!data) return;
  if (const auto body = KXJsonReader::parseObject(*data)) {
    content_ = KXJsonReader::string(*body, "content");
    if (const KXDictionary* user = KXJsonReader::object(KXJsonReader::find(&*body, "user"))) {
      setSenderUserInfo(std::make_shared<KXUserInfo>(KXJsonReader::string(*user, "id"),
                                                     KXJsonReader::string(*user, "name"),
                                                     KXJsonReader::string(*user, "portrait")));
    }
  }
}

KXString KXTextMessage::conversationDigest() const { return content_; }

}  // namespace quor
