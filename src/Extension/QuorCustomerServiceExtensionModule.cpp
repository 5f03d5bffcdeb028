#include "QuorCustomerService/Extension/QuorCustomerServiceExtensionModule.h"

#include "Host/KXLog.h"
#include "QuorCustomerService/Host/KXCoreClient.h"
#include "QuorCustomerService/Host/KXHostConstants.h"
#include "QuorCustomerService/KXCustomerServiceClient.h"
#include "QuorCustomerService/Message/KXCSChangeModeMessage.h"
#include "QuorCustomerService/Message/KXCSChangeModeResponseMessage.h"
#include "QuorCustomerService/Message/KXCSEvaluateMessage.h"
#include "QuorCustomerService/Message/KXCSHandShakeMessage.h"
#include "QuorCustomerService/Message/KXCSHandShakeResponseMessage.h"
#include "QuorCustomerService/Message/KXCSLeaveMessage.h"
#include "QuorCustomerService/Message/KXCSPullEvaluateMessage.h"
#include "QuorCustomerService/Message/KXCSPullLeaveMessage.h"
#include "QuorCustomerService/Message/KXCSSuspendMessage.h"
#include "QuorCustomerService/Message/KXCSTerminateMessage.h"
#include "QuorCustomerService/Message/KXCSUpdateMessage.h"

namespace quor {

QuorCustomerServiceExtensionModule& QuorCustomerServiceExtensionModule::loadQuorExtensionModule() {
  KXLog::info(KX_LOG_TAG, "QuorCustomerServiceExtensionModule loadQuorExtensionModule");
  // Made and registered exactly once; never destroyed, like the client it forwards to.
  static QuorCustomerServiceExtensionModule* module = [] {
    auto* created = new QuorCustomerServiceExtensionModule();
    // Every type but the evaluation message, which is only ever sent.
    created->setMessageTypeList({
        KXMessageContentType::of<KXCSChangeModeMessage>(),
        KXMessageContentType::of<KXCSChangeModeResponseMessage>(),
        KXMessageContentType::of<KXCSHandShakeMessage>(),
        KXMessageContentType::of<KXCSHandShakeResponseMessage>(),
        KXMessageContentType::of<KXCSSuspendMessage>(),
        KXMessageContentType::of<KXCSTerminateMessage>(),
        KXMessageContentType::of<KXCSUpdateMessage>(),
        KXMessageContentType::of<KXCSPullEvaluateMessage>(),
        KXMessageContentType::of<KXCSPullLeaveMessage>(),
        KXMessageContentType::of<KXCSLeaveMessage>(),
    });
    for (const auto& type : created->messageTypeList()) {
      if (auto core = KXCoreClient::sharedCoreClient()) core->registerMessageType(type);
    }
    return created;
  }();
  return *module;
}

std::vector<KXMessageContentType> QuorCustomerServiceExtensionModule::messageTypeList() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return messageTypeList_;
}

void QuorCustomerServiceExtensionModule::setMessageTypeList(
    std::vector<KXMessageContentType> messageTypeList) {
  std::lock_guard<std::mutex> lock(mutex_);
  messageTypeList_.swap(messageTypeList);
}

void QuorCustomerServiceExtensionModule::destroyModule() {
  // Only logged: the module, its types and the client's sessions stay.
  KXLog::info(KX_LOG_TAG, "QuorCustomerServiceExtensionModule destroyModule");
}

std::vector<KXMessageContentType> QuorCustomerServiceExtensionModule::getSignalMessageClassList() {
  // The evaluation message is a signal although it is not registered; the two leave-message
  // types are not signals.
  return {
      KXMessageContentType::of<KXCSEvaluateMessage>(),
      KXMessageContentType::of<KXCSUpdateMessage>(),
      KXMessageContentType::of<KXCSPullEvaluateMessage>(),
      KXMessageContentType::of<KXCSChangeModeResponseMessage>(),
      KXMessageContentType::of<KXCSTerminateMessage>(),
      KXMessageContentType::of<KXCSSuspendMessage>(),
      KXMessageContentType::of<KXCSHandShakeResponseMessage>(),
      KXMessageContentType::of<KXCSHandShakeMessage>(),
      KXMessageContentType::of<KXCSChangeModeMessage>(),
  };
}

bool QuorCustomerServiceExtensionModule::didHoldReceivedMessage(
    const std::shared_ptr<KXMessage>& message, bool /*isOffline: offline messages alike*/) {
  // Every message the host receives passes here first: other conversations leave at once, with
  // the answer the client would give them.
  if (!message || message->conversationType() != KXConversationTypeCustomerService) return false;
  return KXCustomerServiceClient::sharedCustomerServiceClient().onCustomerServiceMessageReceived(
      message);
}

void QuorCustomerServiceExtensionModule::setAppKey(const KXString& appKey) {
  KXLog::info(KX_LOG_TAG, "QuorCustomerServiceExtensionModule setAppKey = %@", {appKey});
}

void QuorCustomerServiceExtensionModule::setConfiguration(const std::shared_ptr<KXNaviDataInfo>&) {}
void QuorCustomerServiceExtensionModule::setUserId(const KXString&) {}
void QuorCustomerServiceExtensionModule::setCurrentToken(const KXString&) {}
void QuorCustomerServiceExtensionModule::notifyConnectionStatusChanged(int64_t) {}
void QuorCustomerServiceExtensionModule::notifyLogoutEvent() {}
void QuorCustomerServiceExtensionModule::setDeviceToken(const KXString&) {}

}  // namespace quor

extern "C" quor::QuorIMLibExtensionModule* QuorCustomerServiceLoadExtensionModule(void) {
  return &quor::QuorCustomerServiceExtensionModule::loadQuorExtensionModule();
}
