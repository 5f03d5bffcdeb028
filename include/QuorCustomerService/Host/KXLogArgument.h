#pragma once

#include <string>
#include <string_view>

#include "QuorCustomerService/Host/KXTypes.h"
#include "QuorCustomerService/QuorCustomerServiceExport.h"

namespace quor {

// One value for a "%@" placeholder of a log format: absent, a string or a JSON value.
// It refers to the caller's data and is valid only during the KXFwLog::write() call that
// receives it; a logger that keeps entries must copy what it needs (see ownedString(),
// description()).
class QUOR_CS_EXPORT KXLogArgument {
 public:
  enum class Kind { Absent, String, Json };

  KXLogArgument() = default;
  KXLogArgument(std::string_view text) : kind_(Kind::String), text_(text) {}
  KXLogArgument(const char* text)
      : kind_(text ? Kind::String : Kind::Absent), text_(text ? text : "") {}
  KXLogArgument(const KXString& text)
      : kind_(text ? Kind::String : Kind::Absent), text_(text ? std::string_view(*text) : "") {}
  KXLogArgument(const KXDictionary& json) : kind_(Kind::Json), json_(&json) {}

  Kind kind() const { return kind_; }
  std::string_view text() const { return text_; }
  // The JSON value, or null unless kind() is Json.
  const KXDictionary* json() const { return json_; }

  // The text that replaces "%@": a string as it is, a JSON value written compactly (invalid
  // UTF-8 replaced), absent as "(null)".
  std::string description() const;

 private:
  Kind kind_ = Kind::Absent;
  std::string_view text_;
  const KXDictionary* json_ = nullptr;
};

}  // namespace quor
