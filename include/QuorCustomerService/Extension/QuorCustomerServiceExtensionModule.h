#pragma once

#include <memory>
#include <vector>

#include "QuorCustomerService/Host/QuorIMLibExtensionModule.h"
#include "QuorCustomerService/QuorCustomerServiceExport.h"

namespace quor {

// The library's entry point for the host: registers the ten receivable message types, names
// the nine signal types and hands every received message to the shared client.
//
// Threads: every operation may be called from any thread. didHoldReceivedMessage() runs the
// client's handling synchronously on the calling (delivery) thread; the client posts its
// callbacks to the main thread itself. Lifecycle events only log or do nothing.
class QUOR_CS_EXPORT QuorCustomerServiceExtensionModule : public QuorIMLibExtensionModule {
 public:
  // Creates the one module on the first call (safely under concurrent first calls) and
  // registers the message types with the installed core client then; logs on every call.
  // A host whose registerMessageType() throws gets the failure logged, and the next load
  // continues the registration with the type that failed. A host must not call the load from
  // inside registerMessageType(): such a call is logged and returns without registering.
  static QuorCustomerServiceExtensionModule& loadQuorExtensionModule();

  // The types registered with the host, in registration order.
  std::vector<KXMessageContentType> messageTypeList() const;
  void setMessageTypeList(std::vector<KXMessageContentType> messageTypeList);

  void destroyModule() override;
  std::vector<KXMessageContentType> getSignalMessageClassList() override;
  bool didHoldReceivedMessage(const std::shared_ptr<KXMessage>& message, bool isOffline) override;
  void setAppKey(const KXString& appKey) override;
  void setConfiguration(const std::shared_ptr<KXNaviDataInfo>& configuration) override;
  void setUserId(const KXString& userId) override;
  void setCurrentToken(const KXString& token) override;
  void notifyConnectionStatusChanged(int64_t status) override;
  void notifyLogoutEvent() override;
  void setDeviceToken(const KXString& deviceToken) override;
  // A customer-service conversation read elsewhere: its service's unread count goes to 0.
  void notifyConversationRead(int32_t conversationType, const KXString& targetId) override;
  void notifyTypingStatus(int32_t conversationType, const KXString& targetId, bool typing) override;
  void notifyReadReceipt(int32_t conversationType, const KXString& targetId,
                         int64_t messageId) override;

  QuorCustomerServiceExtensionModule(const QuorCustomerServiceExtensionModule&) = delete;
  QuorCustomerServiceExtensionModule& operator=(const QuorCustomerServiceExtensionModule&) = delete;

 private:
  QuorCustomerServiceExtensionModule();
  ~QuorCustomerServiceExtensionModule() override;

  struct State;  // the type list and its lock
  std::unique_ptr<State> state_;
};

}  // namespace quor

// For hosts that find extensions with dlopen()/dlsym(): loads the module
// (loadQuorExtensionModule) and returns it. Null only when memory runs out; the module lives
// until the process ends.
extern "C" QUOR_CS_EXPORT quor::QuorIMLibExtensionModule* QuorCustomerServiceLoadExtensionModule(
    void);
