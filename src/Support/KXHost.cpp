#include "Support/KXHost.h"

#include "QuorCustomerService/Host/KXHostConstants.h"
#include "QuorCustomerService/Host/KXLocalConfiguration.h"
#include "Support/KXCallbackGuard.h"

namespace quor {

void KXHost::send(const KXString& kefuId, std::shared_ptr<KXMessageContent> content,
                  KXCoreClient::SuccessBlock success, KXCoreClient::ErrorBlock error) {
  auto core = KXCoreClient::sharedCoreClient();
  if (!core) return;
  KXCallbackGuard::host(std::shared_ptr<KXMessage>(), [&] {
    return core->sendMessage(KXConversationTypeCustomerService, kefuId, std::move(content),
                             std::nullopt, std::nullopt, std::move(success), std::move(error));
  });
}

void KXHost::sendReportingRecords(const KXString& kefuId, std::shared_ptr<KXMessageContent> content,
                                  KXCoreClient::RecordSuccessBlock success,
                                  KXCoreClient::RecordErrorBlock error) {
  auto core = KXCoreClient::sharedCoreClient();
  if (!core) return;
  KXCallbackGuard::host(std::shared_ptr<KXMessage>(), [&] {
    return core->sendMessageSuccessBlock(KXConversationTypeCustomerService, kefuId,
                                         std::move(content), std::nullopt, std::nullopt,
                                         std::move(success), std::move(error));
  });
}

bool KXHost::resend(int64_t messageId, KXCoreClient::SuccessBlock success,
                    KXCoreClient::ErrorBlock error) {
  auto core = KXCoreClient::sharedCoreClient();
  if (!core) return false;
  return KXCallbackGuard::host(
      false, [&] { return core->resendMessage(messageId, std::move(success), std::move(error)); });
}

bool KXHost::isUnconfirmed(int64_t errorCode) {
  auto core = KXCoreClient::sharedCoreClient();
  if (!core) return false;
  return KXCallbackGuard::host(false, [&] { return core->isUnconfirmedError(errorCode); });
}

void KXHost::markRead(const std::string& kefuId) {
  auto core = KXCoreClient::sharedCoreClient();
  if (!core) return;
  KXCallbackGuard::host(false, [&] {
    core->markConversationRead(KXConversationTypeCustomerService, kefuId);
    return true;
  });
}

void KXHost::sendTyping(const std::string& kefuId, bool typing) {
  auto core = KXCoreClient::sharedCoreClient();
  if (!core) return;
  KXCallbackGuard::host(false, [&] {
    core->sendTypingStatus(KXConversationTypeCustomerService, kefuId, typing);
    return true;
  });
}

std::shared_ptr<KXMessage> KXHost::insertIncoming(const KXString& kefuId,
                                                  std::shared_ptr<KXMessageContent> content) {
  auto core = KXCoreClient::sharedCoreClient();
  if (!core) return nullptr;
  return KXCallbackGuard::host(std::shared_ptr<KXMessage>(), [&] {
    return core->insertIncomingMessage(KXConversationTypeCustomerService, kefuId, kefuId,
                                       KXReceivedStatusRead, std::move(content));
  });
}

void KXHost::receiveFake(std::shared_ptr<KXMessage> message) {
  auto core = KXCoreClient::sharedCoreClient();
  if (!core) return;
  KXCallbackGuard::host(true, [&] {
    core->onReceiveFakeMessage(std::move(message));
    return true;
  });
}

bool KXHost::registerType(const KXMessageContentType& type) {
  auto core = KXCoreClient::sharedCoreClient();
  if (!core) return true;
  return KXCallbackGuard::host(false, [&] {
    core->registerMessageType(type);
    return true;
  });
}

bool KXHost::suspendWhenLeave() {
  const auto configuration = KXLocalConfiguration::sharedInstance();
  if (!configuration) return false;
  return KXCallbackGuard::host(false, [&] { return configuration->csSuspendWhenLeave(); });
}

}  // namespace quor
