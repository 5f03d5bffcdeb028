#include "QuorXmppHost/QuorPushNotification.h"

#include "KXJsonTree.h"

namespace quor {
namespace {

// A notification is flat: nothing in it nests.
constexpr int kMaxDepth = 2;

bool readText(const KXDictionary& object, const char* name, std::string* out) {
  const auto it = object.find(name);
  if (it == object.end()) return true;
  if (!it->is_string()) return false;
  *out = it->get<std::string>();
  return true;
}

bool readNumber(const KXDictionary& object, const char* name, int64_t* out) {
  const auto it = object.find(name);
  if (it == object.end()) return true;
  if (!it->is_number_integer()) return false;
  *out = it->get<int64_t>();
  return true;
}

}  // namespace

std::string QuorPushNotification::toJson() const {
  KXDictionary object = KXDictionary::object();
  object["account"] = account;
  object["node"] = node;
  object["token"] = token;
  object["desk"] = deskId;
  object["deskJid"] = deskJid;
  object["unread"] = unread;
  object["since"] = since;
  return object.dump(-1, ' ', false, KXDictionary::error_handler_t::replace);
}

bool QuorPushNotification::fromJson(const std::string& json, QuorPushNotification* out) {
  const auto parsed = KXJsonTree::parse(json, kMaxDepth);
  if (!parsed || !parsed->is_object() || !out) return false;
  QuorPushNotification read;
  if (!readText(*parsed, "account", &read.account) || !readText(*parsed, "node", &read.node) ||
      !readText(*parsed, "token", &read.token) || !readText(*parsed, "desk", &read.deskId) ||
      !readText(*parsed, "deskJid", &read.deskJid) ||
      !readNumber(*parsed, "unread", &read.unread) || !readNumber(*parsed, "since", &read.since) ||
      read.deskId.empty() || read.unread < 0) {
    return false;
  }
  *out = std::move(read);
  return true;
}

}  // namespace quor
