// Writes the bodies of sent messages.
#pragma once

#include "QuorCustomerService/Host/KXTypes.h"

#include <nlohmann/json.hpp>
#include "QuorCustomerService/Host/KXUserInfo.h"
#include "QuorCustomerService/Message/KXCSServiceIdentifiers.h"

namespace quor {

class KXJsonWriter {
 public:
  // The compact UTF-8 text of `value`; absent when it cannot be written (invalid UTF-8,
  // or nested deeper than the library reads).
  static KXData write(const KXDictionary& value);
  // Puts `value` under `key` when it is present (an empty string is present).
  static void putString(KXDictionary& object, const char* key, const KXString& value);
  // The service identifiers of a request: "uid", "sid" (the cid) and "pid", each when present.
  static void putIdentifiers(KXDictionary& object, const KXCSServiceIdentifiers& ids);
  // The sender of a text or file: "user" {"id", "name", "portrait"}, absent values left out;
  // nothing without a sender.
  static void putSender(KXDictionary& object, const std::shared_ptr<KXUserInfo>& sender);
  // The sender that putSender() wrote into `object`; null without one.
  static std::shared_ptr<KXUserInfo> readSender(const KXDictionary& object);
};

}  // namespace quor
