#include "QuorCustomerService/Extension/QuorCustomerServiceExtensionModule.h"

#include <atomic>
#include <mutex>

#include "Client/KXClientState.h"
#include "Message/KXMessageTypeTable.h"
#include "QuorCustomerService/Host/KXCoreClient.h"
#include "QuorCustomerService/Host/KXHostConstants.h"
#include "QuorCustomerService/KXCustomerServiceClient.h"
#include "Support/KXHost.h"
#include "Support/KXLog.h"

namespace quor {
namespace {

// Registration runs once to its end: a host whose registerMessageType() throws leaves the rest
// for the next load, which continues with the type that failed. Concurrent loads wait for the
// registration under way (the lock is the once-guard; std::call_once is not used because an
// exception leaving it is not reliably recoverable).
std::mutex registrationLock;
std::atomic<bool> registrationDone{false};
std::size_t nextRegistration = 0;
thread_local bool registering = false;

void registerMessageTypes(const QuorCustomerServiceExtensionModule& module) {
  if (registrationDone.load(std::memory_order_acquire)) return;
  if (registering) {
    // The host called the load from inside its registerMessageType(): not allowed.
    KXLog::error(KX_LOG_TAG,
                 "ERROR: loadQuorExtensionModule called again while registering message types");
    return;
  }
  registering = true;
  std::lock_guard<std::mutex> lock(registrationLock);
  const auto types = module.messageTypeList();
  while (nextRegistration < types.size() && KXHost::registerType(types[nextRegistration])) {
    ++nextRegistration;
  }
  if (nextRegistration < types.size()) {
    KXLog::error(KX_LOG_TAG, "ERROR: registering message type " +
                                 types[nextRegistration].objectName() +
                                 " failed; the next loadQuorExtensionModule retries it");
  } else {
    registrationDone.store(true, std::memory_order_release);
  }
  registering = false;
}

}  // namespace

struct QuorCustomerServiceExtensionModule::State {
  mutable std::mutex mutex;
  std::vector<KXMessageContentType> messageTypeList;
};

QuorCustomerServiceExtensionModule::QuorCustomerServiceExtensionModule()
    : state_(std::make_unique<State>()) {}
QuorCustomerServiceExtensionModule::~QuorCustomerServiceExtensionModule() = default;

QuorCustomerServiceExtensionModule& QuorCustomerServiceExtensionModule::loadQuorExtensionModule() {
  KXLog::info(KX_LOG_TAG, "QuorCustomerServiceExtensionModule loadQuorExtensionModule");
  // Made once and never destroyed, like the client it forwards to.
  static QuorCustomerServiceExtensionModule* module = [] {
    auto* created = new QuorCustomerServiceExtensionModule();
    created->setMessageTypeList(KXMessageTypeTable::registered());
    return created;
  }();
  registerMessageTypes(*module);
  return *module;
}

std::vector<KXMessageContentType> QuorCustomerServiceExtensionModule::messageTypeList() const {
  std::lock_guard<std::mutex> lock(state_->mutex);
  return state_->messageTypeList;
}

void QuorCustomerServiceExtensionModule::setMessageTypeList(
    std::vector<KXMessageContentType> messageTypeList) {
  std::lock_guard<std::mutex> lock(state_->mutex);
  state_->messageTypeList.swap(messageTypeList);
}

void QuorCustomerServiceExtensionModule::destroyModule() {
  // Only logged: the module, its types and the client's sessions stay.
  KXLog::info(KX_LOG_TAG, "QuorCustomerServiceExtensionModule destroyModule");
}

std::vector<KXMessageContentType> QuorCustomerServiceExtensionModule::getSignalMessageClassList() {
  return KXMessageTypeTable::signals();
}

bool QuorCustomerServiceExtensionModule::didHoldReceivedMessage(
    const std::shared_ptr<KXMessage>& message, bool /*isOffline: offline messages alike*/) {
  // Every message the host receives passes here first: other conversations leave at once, with
  // the answer the client would give them.
  if (!message || message->conversationType() != KXConversationTypeCustomerService) return false;
  auto& client = KXCustomerServiceClient::sharedCustomerServiceClient();
  const bool held = client.onCustomerServiceMessageReceived(message);
  // A text or notice that goes on to the app is also a line of the service's conversation.
  if (!held) KXClientState::of(client).events.conversationMessage(message, true);
  return held;
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

void QuorCustomerServiceExtensionModule::notifyConversationRead(int32_t conversationType,
                                                                const KXString& targetId) {
  if (conversationType != KXConversationTypeCustomerService) return;
  auto& client = KXCustomerServiceClient::sharedCustomerServiceClient();
  KXClientState::of(client).events.conversationRead(targetId);
}

void QuorCustomerServiceExtensionModule::notifyTypingStatus(int32_t conversationType,
                                                            const KXString& targetId, bool typing) {
  if (conversationType != KXConversationTypeCustomerService) return;
  auto& client = KXCustomerServiceClient::sharedCustomerServiceClient();
  KXClientState::of(client).events.deskTyping(targetId, typing);
}

void QuorCustomerServiceExtensionModule::notifyReadReceipt(int32_t conversationType,
                                                           const KXString& targetId,
                                                           int64_t messageId) {
  if (conversationType != KXConversationTypeCustomerService) return;
  auto& client = KXCustomerServiceClient::sharedCustomerServiceClient();
  KXClientState::of(client).events.deskRead(targetId, messageId);
}

}  // namespace quor

extern "C" quor::QuorIMLibExtensionModule* QuorCustomerServiceLoadExtensionModule(void) {
  try {
    return &quor::QuorCustomerServiceExtensionModule::loadQuorExtensionModule();
  } catch (...) {
    return nullptr;  // only when the module cannot even be allocated
  }
}
