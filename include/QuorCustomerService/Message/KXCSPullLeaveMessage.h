#pragma once

#include <cstdint>
#include <memory>

#include "QuorCustomerService/Host/KXMessageContent.h"
#include "QuorCustomerService/QuorCustomerServiceExport.h"

namespace quor {

// "KX:CsPLM", received only, stored: the desk's invitation to leave a message; the one
// customer-service message kept in the conversation. Made and decoded by the host on its delivery
// thread, then only read.
class QUOR_CS_EXPORT KXCSPullLeaveMessage : public KXMessageContent {
 public:
  static std::string getObjectName();
  static uint32_t persistentFlag();
  std::string objectName() const override;
  uint32_t messagePersistentFlag() const override;
  // Received only: always absent.
  KXData encode() override;
  // Reads the body; never throws.
  void decodeWithData(const KXData& data) override;
  // The invitation text.
  KXString conversationDigest() const override;

  // The invitation text, also the conversation digest.
  const KXString& content() const { return content_; }
  void setContent(KXString content) { content_ = std::move(content); }

 private:
  KXString content_;
};

}  // namespace quor
