#include "QuorCustomerService/Host/KXMainThreadDispatcher.h"

#include "QuorCustomerService/Host/KXMainRunLoop.h"
#include "Support/KXInstanceSlot.h"

namespace quor {

KXMainThreadDispatcher::~KXMainThreadDispatcher() = default;

std::shared_ptr<KXMainThreadDispatcher> KXMainThreadDispatcher::shared() {
  if (auto installed = KXInstanceSlot<KXMainThreadDispatcher>::global().get()) return installed;
  return KXMainRunLoop::defaultRunLoop();
}

void KXMainThreadDispatcher::setShared(std::shared_ptr<KXMainThreadDispatcher> dispatcher) {
  KXInstanceSlot<KXMainThreadDispatcher>::global().set(std::move(dispatcher));
}

}  // namespace quor
