#include "QuorCustomerService/Host/QuorIMLibExtensionModule.h"

namespace quor {

QuorIMLibExtensionModule::~QuorIMLibExtensionModule() = default;

void QuorIMLibExtensionModule::setDeviceToken(const KXString&) {}

}  // namespace quor
