#include "QuorCustomerService/Host/KXLogArgument.h"

#include <nlohmann/json.hpp>

namespace quor {

std::string KXLogArgument::description() const {
  switch (kind_) {
    case Kind::String:
      return std::string(text_);
    case Kind::Json:
      try {
        return json_->dump(-1, ' ', false, KXDictionary::error_handler_t::replace);
      } catch (...) {
        return "(unprintable)";
      }
    case Kind::Absent:
      break;
  }
  return "(null)";
}

}  // namespace quor
