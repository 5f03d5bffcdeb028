#include "Support/KXMainThread.h"

#include "QuorCustomerService/Host/KXMainThreadDispatcher.h"
#include "Support/KXCallbackGuard.h"

namespace quor {

void KXMainThread::post(std::function<void()> closure) {
  auto dispatcher = KXMainThreadDispatcher::shared();
  // Every application callback inside a closure is guarded on its own, so that the steps
  // after it still run; this outer guard only keeps anything else away from the dispatcher.
  KXCallbackGuard::host(true, [&] {
    dispatcher->post([closure = std::move(closure)] { KXCallbackGuard::run(closure); });
    return true;
  });
}

}  // namespace quor
