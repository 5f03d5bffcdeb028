#pragma once

#include <map>
#include <nlohmann/json.hpp>
#include <string>

#include "QuorCustomerService/Host/KXTypes.h"
#include "QuorCustomerService/Message/KXCSLeaveMessageItem.h"

namespace quor {

// Checks the app's values against the desk's leave-message form, field by field: `required`
// (present and not an empty string), `max` (at most that many characters, when above 0) and
// the `verification` names the library knows ("mobile", "phone", "email", "number"); other
// names pass. Values of fields the form does not name pass unchecked.
class KXCSLeaveMessageForm {
 public:
  // field name -> "required", "too long" or the failed verification's name; empty when all pass.
  static std::map<std::string, std::string> check(const KXCSLeaveMessageItemList& fields,
                                                  const KXDictionary& values);
  // Whether `text` passes the verification `name` (true for names the library does not know).
  static bool verifies(const std::string& name, const std::string& text);
};

}  // namespace quor
