#include "Support/KXLog.h"

#include "QuorCustomerService/Host/KXFwLog.h"
#include "QuorCustomerService/Host/KXHostConstants.h"

namespace quor {
namespace {

// A logger that throws loses its entry; the library goes on (nothing to report it to).
void write(int32_t level, std::string_view tag, std::string_view format,
           std::initializer_list<KXLogArgument> keys) noexcept {
  try {
    if (auto logger = KXFwLog::getInstance()) {
      logger->write(level, KXLogTypeCustomerService, tag, format, keys);
    }
  } catch (...) {
  }
}

}  // namespace

void KXLog::info(std::string_view tag, std::string_view format,
                 std::initializer_list<KXLogArgument> keys) noexcept {
  write(KXLogLevelInfo, tag, format, keys);
}

void KXLog::error(std::string_view tag, std::string_view text) noexcept {
  write(KXLogLevelError, tag, text, {});
}

}  // namespace quor
