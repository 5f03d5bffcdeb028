#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "QuorCustomerService/Host/KXMessage.h"
#include "QuorCustomerService/Host/KXMessageContentType.h"
#include "QuorCustomerService/Host/KXNaviDataInfo.h"
#include "QuorCustomerService/Host/KXTypes.h"
#include "QuorCustomerService/QuorCustomerServiceExport.h"

namespace quor {

// The host's extension-module protocol: how the host loads an extension, learns its message
// types and offers it every received message and its lifecycle events.
//
// A conforming class also provides the class operation `static ... loadQuorExtensionModule()`,
// which the host calls first; every instance operation is then called on the object it returned.
// The host calls these from its own threads (didHoldReceivedMessage on its delivery thread), so
// implementations must be thread-safe.
class QUOR_CS_EXPORT QuorIMLibExtensionModule {
 public:
  virtual ~QuorIMLibExtensionModule();

  virtual void destroyModule() = 0;
  // The types the host is to treat as signal messages, in a fresh list.
  virtual std::vector<KXMessageContentType> getSignalMessageClassList() = 0;
  // didHoldReceivedMessage:isOffline: true when the module holds (consumes) the message.
  virtual bool didHoldReceivedMessage(const std::shared_ptr<KXMessage>& message,
                                      bool isOffline) = 0;
  virtual void setAppKey(const KXString& appKey) = 0;
  virtual void setConfiguration(const std::shared_ptr<KXNaviDataInfo>& configuration) = 0;
  virtual void setUserId(const KXString& userId) = 0;
  virtual void setCurrentToken(const KXString& token) = 0;
  virtual void notifyConnectionStatusChanged(int64_t status) = 0;
  virtual void notifyLogoutEvent() = 0;
  // Optional: does nothing unless a module overrides it.
  virtual void setDeviceToken(const KXString& deviceToken);
  // Optional: another device of the account read the conversation `targetId` of
  // `conversationType` (a host that shares read markers calls it). Does nothing by default.
  virtual void notifyConversationRead(int32_t conversationType, const KXString& targetId);
  // Optional: the other side of the conversation `targetId` is typing (`typing`), or stopped
  // (false). Does nothing by default.
  virtual void notifyTypingStatus(int32_t conversationType, const KXString& targetId, bool typing);
  // Optional: the other side of the conversation `targetId` read this host's message
  // `messageId` (the id its send reported) and what was sent before it. Does nothing by default.
  virtual void notifyReadReceipt(int32_t conversationType, const KXString& targetId,
                                 int64_t messageId);
};

}  // namespace quor
