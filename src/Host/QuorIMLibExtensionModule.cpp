#include "QuorCustomerService/Host/QuorIMLibExtensionModule.h"

namespace quor {

QuorIMLibExtensionModule::~QuorIMLibExtensionModule() = default;

void QuorIMLibExtensionModule::setDeviceToken(const KXString&) {}
void QuorIMLibExtensionModule::notifyConversationRead(int32_t, const KXString&) {}

}  // namespace quor
