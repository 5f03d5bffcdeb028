#include "Support/KXHost.h"

#include "QuorCustomerService/Host/KXFileMessage.h"
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

uint64_t KXHost::maxFileBytes() {
  auto core = KXCoreClient::sharedCoreClient();
  if (!core) return 0;
  return KXCallbackGuard::host(uint64_t{0}, [&] { return core->maxFileBytes(); });
}

void KXHost::sendFile(const std::string& kefuId, std::shared_ptr<KXFileMessage> content,
                      std::shared_ptr<const std::atomic<bool>> cancel,
                      KXCoreClient::ProgressBlock progress, KXCoreClient::SuccessBlock success,
                      KXCoreClient::ErrorBlock error) {
  auto core = KXCoreClient::sharedCoreClient();
  const bool called =
      core && KXCallbackGuard::host(false, [&] {
        core->sendFileMessage(KXConversationTypeCustomerService, kefuId, std::move(content),
                              std::move(cancel), std::move(progress), success, error);
        return true;
      });
  // The closures are once-only (KXSendOutcome): a host that threw after calling one is not
  // reported twice.
  if (!called && error) error(-1, 0);
}

void KXHost::download(std::shared_ptr<const KXFileMessage> content,
                      std::shared_ptr<const std::atomic<bool>> cancel,
                      KXCoreClient::ProgressBlock progress, KXCoreClient::DownloadBlock done) {
  auto core = KXCoreClient::sharedCoreClient();
  const bool called =
      core && KXCallbackGuard::host(false, [&] {
        core->downloadFile(std::move(content), std::move(cancel), std::move(progress), done);
        return true;
      });
  if (!called && done) done("", -1);
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
