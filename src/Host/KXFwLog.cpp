#include "QuorCustomerService/Host/KXFwLog.h"

#include "Support/KXInstanceSlot.h"

namespace quor {

KXFwLog::~KXFwLog() = default;

std::shared_ptr<KXFwLog> KXFwLog::getInstance() { return KXInstanceSlot<KXFwLog>::global().get(); }

void KXFwLog::setInstance(std::shared_ptr<KXFwLog> logger) {
  KXInstanceSlot<KXFwLog>::global().set(std::move(logger));
}

std::string KXFwLog::format(std::string_view format, std::initializer_list<KXLogArgument> keys) {
  std::string text;
  text.reserve(format.size());
  auto key = keys.begin();
  std::size_t start = 0;
  for (std::size_t at = format.find("%@"); at != std::string_view::npos;
       at = format.find("%@", start)) {
    text.append(format.substr(start, at - start));
    text.append(key != keys.end() ? (key++)->description() : std::string("(null)"));
    start = at + 2;
  }
  text.append(format.substr(start));
  return text;
}

}  // namespace quor
