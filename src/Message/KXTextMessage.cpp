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
  KXJsonWriter::putSender(body, senderUserInfo());
  return KXJsonWriter::write(body);
}

void KXTextMessage::decodeWithData(const KXData& data) {
  if (!data) return;
  if (const auto body = KXJsonReader::parseObject(*data)) {
    content_ = KXJsonReader::string(*body, "content");
    if (auto sender = KXJsonWriter::readSender(*body)) setSenderUserInfo(std::move(sender));
  }
}

KXString KXTextMessage::conversationDigest() const { return content_; }

}  // namespace quor
