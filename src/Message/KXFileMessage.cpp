#include "QuorCustomerService/Host/KXFileMessage.h"

#include <nlohmann/json.hpp>

#include "Message/KXContentTypeDefinition.h"
#include "Message/KXJsonReader.h"
#include "Message/KXJsonWriter.h"

namespace quor {
namespace {

// A count from a received body: a non-negative integer, else 0.
uint64_t count(const KXDictionary& body, const char* key) {
  const KXDictionary* value = KXJsonReader::find(&body, key);
  return value && value->is_number_unsigned() ? value->get<uint64_t>() : 0;
}

}  // namespace

KX_CONTENT_TYPE(KXFileMessage, "KX:FileMsg", 1)

KXData KXFileMessage::encode() {
  KXDictionary body = KXDictionary::object();
  body["name"] = name_;
  body["type"] = mimeType_;
  body["size"] = size_;
  body["url"] = url_;
  if (width_ > 0 && height_ > 0) {
    body["width"] = width_;
    body["height"] = height_;
  }
  KXJsonWriter::putSender(body, senderUserInfo());
  return KXJsonWriter::write(body);
}

void KXFileMessage::decodeWithData(const KXData& data) {
  if (!data) return;
  const auto body = KXJsonReader::parseObject(*data);
  if (!body) return;
  name_ = KXJsonReader::string(*body, "name").value_or("");
  mimeType_ = KXJsonReader::string(*body, "type").value_or("");
  url_ = KXJsonReader::string(*body, "url").value_or("");
  size_ = count(*body, "size");
  const uint64_t width = count(*body, "width");
  const uint64_t height = count(*body, "height");
  if (width <= UINT32_MAX && height <= UINT32_MAX)
    setPixelSize(static_cast<uint32_t>(width), static_cast<uint32_t>(height));
  if (auto sender = KXJsonWriter::readSender(*body)) setSenderUserInfo(std::move(sender));
}

KXString KXFileMessage::conversationDigest() const { return "[file] " + name_; }

}  // namespace quor
