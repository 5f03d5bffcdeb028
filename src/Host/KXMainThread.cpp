#include "Host/KXMainThread.h"

#include "Host/KXCallbackGuard.h"
#include "QuorCustomerService/Host/KXMainThreadDispatcher.h"

namespace quor {

void KXMainThread::post(std::function<void()> closure) {
  KXMainThreadDispatcher::shared()->post(
      [closure = std::move(closure)] { KXCallbackGuard::run(closure); });
}

}  // namespace quor
