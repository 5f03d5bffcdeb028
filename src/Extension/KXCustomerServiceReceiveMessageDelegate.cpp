#include "QuorCustomerService/Extension/KXCustomerServiceReceiveMessageDelegate.h"

namespace quor {

KXCustomerServiceReceiveMessageDelegate::~KXCustomerServiceReceiveMessageDelegate() = default;

}  // namespace quor
