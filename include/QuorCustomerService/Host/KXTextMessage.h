#pragma once

#include "QuorCustomerService/Host/KXMessageContent.h"

namespace quor {

// The host's plain-text content ("KX:TxtMsg", stored). The library makes one for the robot's
// greeting; a host adapter maps it onto the host's own text type.
// Same threading rules as KXMessageContent.
class QUOR_CS_EXPORT KXTextMessage : public KXMessageContent {
 public:
  static std::string getObjectName();
  static uint32_t persistentFlag();
  // Makes a text content holding `content`.
  static std::shared_ptr<KXTextMessage> messageWithContent(KXString content);

  std::string objectName() const override;
  uint32_t messagePersistentFlag() const override;
  // {"content": text, "user": {"id", "name", "portrait"}}: absent values left out, "user"
  // only with sender information.
  KXData encode() override;
  void decodeWithData(const KXData& data) override;
  KXString conversationDigest() const override;

  const KXString& content() const { return content_; }
  void setContent(KXString content) { content_ = std::move(content); }

 private:
  KXString content_;
};

}  // namespace quor
