#include "QuorCustomerService/Host/KXCoreClient.h"

#include "Support/KXInstanceSlot.h"

namespace quor {
KXCoreClient::~KXCoreClient() = default;

bool KXCoreClient::isUnconfirmedError(int64_t) const { return false; }

bool KXCoreClient::resendMessage(int64_t, SuccessBlock, ErrorBlock) { return false; }

void KXCoreClient::markConversationRead(int32_t, const KXString&) {}
void KXCoreClient::sendTypingStatus(int32_t, const KXString&, bool) {}

std::shared_ptr<KXCoreClient> KXCoreClient::sharedCoreClient() {
  return KXInstanceSlot<KXCoreClient>::global().get();
}

void KXCoreClient::setSharedCoreClient(std::shared_ptr<KXCoreClient> client) {
  KXInstanceSlot<KXCoreClient>::global().set(std::move(client));
}

}  // namespace quor
