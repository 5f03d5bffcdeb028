#pragma once

#include <cstdint>
#include <memory>

#include "QuorCustomerService/Host/KXTypes.h"
#include "QuorCustomerService/Host/KXUserInfo.h"
#include "QuorCustomerService/QuorCustomerServiceExport.h"

namespace quor {

// The host's base class of every message content. Each concrete type also offers the static
// getObjectName() and persistentFlag(); the virtual objectName() and messagePersistentFlag()
// give the same answers through a base pointer.
//
// A content is filled on one thread and then handed over (to the host for sending, or to the
// library after decoding); it is not locked, so it must not be changed while another thread
// reads it.
class QUOR_CS_EXPORT KXMessageContent {
 public:
  virtual ~KXMessageContent();

  // The type's object name (its name on the wire) and storage flags.
  virtual std::string objectName() const = 0;
  virtual uint32_t messagePersistentFlag() const = 0;

  // The body bytes of this content, or absent.
  virtual KXData encode() = 0;
  // Fills the fields from received bytes (possibly absent). Never throws.
  virtual void decodeWithData(const KXData& data) = 0;
  // The text the host shows as the conversation's summary; absent by default.
  virtual KXString conversationDigest() const;

  const std::shared_ptr<KXUserInfo>& senderUserInfo() const { return senderUserInfo_; }
  void setSenderUserInfo(std::shared_ptr<KXUserInfo> senderUserInfo) {
    senderUserInfo_ = std::move(senderUserInfo);
  }

 protected:
  KXMessageContent() = default;
  KXMessageContent(const KXMessageContent&) = default;
  KXMessageContent& operator=(const KXMessageContent&) = default;

 private:
  std::shared_ptr<KXUserInfo> senderUserInfo_;
};

}  // namespace quor
