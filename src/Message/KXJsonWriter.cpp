#include "Message/KXJsonWriter.h"

#include "Message/KXJsonReader.h"

namespace quor {
namespace {

// Whether `value` nests deeper than `limit` levels; writing it would recurse that deep.
bool nestsDeeperThan(const KXDictionary& value, int limit) {
  if (!value.is_structured()) return false;
  if (limit == 0) return true;
  for (const auto& element : value) {
    if (nestsDeeperThan(element, limit - 1)) return true;
  }
  return false;
}

}  // namespace

KXData KXJsonWriter::write(const KXDictionary& value) {
  try {
    if (nestsDeeperThan(value, KXJsonReader::kMaxDepth)) return std::nullopt;
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
