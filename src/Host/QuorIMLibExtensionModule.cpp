#include "QuorCustomerService/Host/QuorIMLibExtensionModule.h"

namespace quor {

QuorIMLibExtensionModule::~QuorIMLibExtensionModule() = default;

void QuorIMLibExtensionModule::setDeviceToken(const KXString&) {}
void QuorIMLibExtensionModule::notifyConversationRead(int32_t, const KXString&) {}
void QuorIMLibExtensionModule::notifyTypingStatus(int32_t, const KXString&, bool) {}
void QuorIMLibExtensionModule::notifyReadReceipt(int32_t, const KXString&, int64_t) {}

}  // namespace quor
