#include "Support/KXCallbackGuard.h"

#include <string>

#include "Support/KXLog.h"

namespace quor {

void KXCallbackGuard::report(Source source, const char* what) noexcept {
  try {
    std::string text =
        source == Source::Callback ? "ERROR: a callback threw" : "ERROR: the host threw";
    if (what) text.append(": ").append(what);
    KXLog::error(KX_LOG_TAG, text);
  } catch (...) {
    // Out of memory while reporting: nothing more can be done.
  }
}

}  // namespace quor
