#include "QuorCustomerService/Host/KXInformationNotificationMessage.h"

#include <nlohmann/json.hpp>

#include "Message/KXContentTypeDefinition.h"
#include "Message/KXJsonReader.h"
#include "Message/KXJsonWriter.h"

namespace quor {

KX_CONTENT_TYPE(KXInformationNotificationMessage, "KX:InfoNtf", 1)

std::shared_ptr<KXInformationNotificationMessage>
KXInformationNotificationMessage::notificationWithMessage(KXString message, KXString extra) {
  auto notification = std::make_shared<KXInformationNotificationMessage>();
  notification->setMessage(std::move(message));
  notification->setExtra(std::move(extra));
  return notification;
}

KXData KXInformationNotificationMessage::encode() {
  KXDictionary body = KXDictionary::object();
  KXJsonWriter::putString(body, "message", message_);
  KXJsonWriter::putString(body, "extra", extra_);
  return KXJsonWriter::write(body);
}

void KXInformationNotificationMessage::decodeWithData(const KXData& data) {
  if (!data) return;
  if (const auto body = KXJsonReader::parseObject(*data)) {
    message_ = KXJsonReader::string(*body, "message");
    extra_ = KXJsonReader::string(*body, "extra");
  }
}

KXString KXInformationNotificationMessage::conversationDigest() const { return message_; }

}  // namespace quor
