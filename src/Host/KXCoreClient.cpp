#include "QuorCustomerService/Host/KXCoreClient.h"

#include "Support/KXInstanceSlot.h"

namespace quor {
KXCoreClient::~KXCoreClient() = default;

bool KXCoreClient::isUnconfirmedError(int64_t) const { return false; }

bool KXCoreClient::resendMessage(int64_t, SuccessBlock, ErrorBlock) { return false; }

void KXCoreClient::markConversationRead(int32_t, const KXString&) {}
uint64_t KXCoreClient::maxFileBytes() const { return 0; }

void KXCoreClient::sendFileMessage(int32_t, const KXString&, std::shared_ptr<KXFileMessage>,
                                   std::shared_ptr<const std::atomic<bool>>, ProgressBlock,
                                   SuccessBlock, ErrorBlock error) {
  if (error) error(-1, 0);
}

void KXCoreClient::downloadFile(std::shared_ptr<const KXFileMessage>,
                                std::shared_ptr<const std::atomic<bool>>, ProgressBlock,
                                DownloadBlock done) {
  if (done) done("", -1);
}

void KXCoreClient::sendTypingStatus(int32_t, const KXString&, bool) {}

std::shared_ptr<KXCoreClient> KXCoreClient::sharedCoreClient() {
  return KXInstanceSlot<KXCoreClient>::global().get();
}

void KXCoreClient::setSharedCoreClient(std::shared_ptr<KXCoreClient> client) {
  KXInstanceSlot<KXCoreClient>::global().set(std::move(client));
}

}  // namespace quor
