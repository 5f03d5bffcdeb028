#include "Host/KXLog.h"

#include "QuorCustomerService/Host/KXFwLog.h"
#include "QuorCustomerService/Host/KXHostConstants.h"

namespace quor {

void KXLog::info(std::string_view tag, std::string_view format,
                 std::initializer_list<KXLogArgument> keys) {
  if (auto logger = KXFwLog::getInstance()) {
    logger->write(KXLogLevelInfo, KXLogTypeCustomerService, tag, format, keys);
  }
}

void KXLog::error(std::string_view tag, std::string_view text) {
  if (auto logger = KXFwLog::getInstance()) {
    logger->write(KXLogLevelError, KXLogTypeCustomerService, tag, text, {});
  }
}

}  // namespace quor
