#pragma once

#include "QuorCustomerService/Host/KXMessageContent.h"

namespace quor {

// The host's grey notice content ("KX:InfoNtf", stored): a line of text shown in the
// middle of the conversation. Same threading rules as KXMessageContent.
class QUOR_CS_EXPORT KXInformationNotificationMessage : public KXMessageContent {
 public:
  static std::string getObjectName();
  static uint32_t persistentFlag();
  // notificationWithMessage:extra:
  static std::shared_ptr<KXInformationNotificationMessage> notificationWithMessage(KXString message,
                                                                                   KXString extra);

  std::string objectName() const override;
  uint32_t messagePersistentFlag() const override;
  // {"message": text, "extra": text}, absent keys left out.
  KXData encode() override;
  void decodeWithData(const KXData& data) override;
  KXString conversationDigest() const override;

  const KXString& message() const { return message_; }
  void setMessage(KXString message) { message_ = std::move(message); }
  const KXString& extra() const { return extra_; }
  void setExtra(KXString extra) { extra_ = std::move(extra); }

 private:
  KXString message_;
  KXString extra_;
};

}  // namespace quor
