#pragma once

#include <cstdint>
#include <memory>

#include "QuorCustomerService/Host/KXMessageContent.h"
#include "QuorCustomerService/Host/KXTypes.h"
#include "QuorCustomerService/QuorCustomerServiceExport.h"

namespace quor {

// The host's message record: a content with its conversation, sender, ids and times.
// A record is filled by its maker and then only read; it is not locked.
class QUOR_CS_EXPORT KXMessage {
 public:
  KXMessage() = default;
  // initWithType:targetId:direction:messageId:content:
  KXMessage(int32_t conversationType, KXString targetId, int32_t messageDirection,
            int64_t messageId, std::shared_ptr<KXMessageContent> content);

  int32_t conversationType() const { return conversationType_; }
  void setConversationType(int32_t value) { conversationType_ = value; }
  const KXString& targetId() const { return targetId_; }
  void setTargetId(KXString value) { targetId_ = std::move(value); }
  const KXString& senderUserId() const { return senderUserId_; }
  void setSenderUserId(KXString value) { senderUserId_ = std::move(value); }
  int32_t messageDirection() const { return messageDirection_; }
  void setMessageDirection(int32_t value) { messageDirection_ = value; }
  int64_t messageId() const { return messageId_; }
  void setMessageId(int64_t value) { messageId_ = value; }
  // The host's send time; the library only compares and stores it.
  int64_t sentTime() const { return sentTime_; }
  void setSentTime(int64_t value) { sentTime_ = value; }
  int32_t receivedStatus() const { return receivedStatus_; }
  void setReceivedStatus(int32_t value) { receivedStatus_ = value; }
  const KXString& objectName() const { return objectName_; }
  void setObjectName(KXString value) { objectName_ = std::move(value); }
  const std::shared_ptr<KXMessageContent>& content() const { return content_; }
  void setContent(std::shared_ptr<KXMessageContent> value) { content_ = std::move(value); }

 private:
  int32_t conversationType_ = 0;
  KXString targetId_;
  KXString senderUserId_;
  int32_t messageDirection_ = 0;
  int64_t messageId_ = 0;
  int64_t sentTime_ = 0;
  int32_t receivedStatus_ = 0;
  KXString objectName_;
  std::shared_ptr<KXMessageContent> content_;
};

}  // namespace quor
