#include "Host/KXMainThread.h"

#include <exception>

#include "Host/KXLog.h"
#include "QuorCustomerService/Host/KXMainThreadDispatcher.h"

namespace quor {

void KXMainThread::post(std::function<void()> closure) {
  KXMainThreadDispatcher::shared()->post([closure = std::move(closure)] {
    try {
      closure();
    } catch (const std::exception& error) {
      KXLog::error(KX_LOG_TAG, std::string("ERROR: a callback threw: ") + error.what());
    } catch (...) {
      KXLog::error(KX_LOG_TAG, "ERROR: a callback threw");
    }
  });
}

}  // namespace quor
