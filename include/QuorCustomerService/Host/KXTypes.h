// Value types shared by the whole library: dictionaries, byte buffers and optional strings.
// Only the dictionary's declaration is included here (the public headers take it by reference
// or shared pointer); code that builds or reads dictionaries includes <nlohmann/json.hpp>, as
// QuorCustomerService.h does.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>

namespace quor {

// A JSON dictionary that keeps the insertion order of its keys, so bodies go out in the order
// they were built.
using KXDictionary = nlohmann::ordered_json;

// Body bytes of a message content; absent when there are none.
using KXData = std::optional<std::string>;

// A string that may be absent; an empty string is present.
using KXString = std::optional<std::string>;

}  // namespace quor
