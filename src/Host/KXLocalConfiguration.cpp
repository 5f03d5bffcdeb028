#include "QuorCustomerService/Host/KXLocalConfiguration.h"

#include "Support/KXInstanceSlot.h"

namespace quor {
KXLocalConfiguration::~KXLocalConfiguration() = default;

std::shared_ptr<KXLocalConfiguration> KXLocalConfiguration::sharedInstance() {
  return KXInstanceSlot<KXLocalConfiguration>::global().get();
}

void KXLocalConfiguration::setSharedInstance(std::shared_ptr<KXLocalConfiguration> configuration) {
  KXInstanceSlot<KXLocalConfiguration>::global().set(std::move(configuration));
}

}  // namespace quor
