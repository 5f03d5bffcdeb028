#include "Message/KXJsonWriter.h"

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

void KXJsonWriter::putIdentifiers(KXDictionary& object, const KXString& uid, const KXString& cid,
                                  const KXString& pid) {
  putString(object, "uid", uid);
  putString(object, "sid", cid);
  putString(object, "pid", pid);
}

}  // namespace quor
