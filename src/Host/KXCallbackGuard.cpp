#include "Host/KXCallbackGuard.h"

#include <string>

#include "Host/KXLog.h"

namespace quor {

void KXCallbackGuard::report(const char* what) noexcept {
  try {
    KXLog::error(KX_LOG_TAG, what ? std::string("ERROR: a callback threw: ") + what
                                  : std::string("ERROR: a callback threw"));
  } catch (...) {
    // Nothing more can be done without a working logger.
  }
}

}  // namespace quor
