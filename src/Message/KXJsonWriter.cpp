#include "Message/KXJsonWriter.h"

#include <nlohmann/json.hpp>

#include "KXJsonTree.h"
#include "Message/KXJsonReader.h"

namespace quor {

KXData KXJsonWriter::write(const KXDictionary& value) {
  try {
    if (KXJsonTree::nestsDeeperThan(value, KXJsonTree::kMaxDepth)) return std::nullopt;
    return value.dump();
  } catch (...) {
    return std::nullopt;
  }
}

void KXJsonWriter::putString(KXDictionary& object, const char* key, const KXString& value) {
  if (value) object[key] = *value;
}

void KXJsonWriter::putIdentifiers(KXDictionary& object, const KXCSServiceIdentifiers& ids) {
  putString(object, "uid", ids.uid);
  putString(object, "sid", ids.cid);
  putString(object, "pid", ids.pid);
}

void KXJsonWriter::putSender(KXDictionary& object, const std::shared_ptr<KXUserInfo>& sender) {
  if (!sender) return;
  KXDictionary user = KXDictionary::object();
  putString(user, "id", sender->userId());
  putString(user, "name", sender->name());
  putString(user, "portrait", sender->portraitUri());
  object["user"] = std::move(user);
}

std::shared_ptr<KXUserInfo> KXJsonWriter::readSender(const KXDictionary& object) {
  const KXDictionary* user = KXJsonReader::object(KXJsonReader::find(&object, "user"));
  if (!user) return nullptr;
  return std::make_shared<KXUserInfo>(KXJsonReader::string(*user, "id"),
                                      KXJsonReader::string(*user, "name"),
                                      KXJsonReader::string(*user, "portrait"));
}

}  // namespace quor
