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

}  // namespace quor
