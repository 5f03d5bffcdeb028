#include "QuorCustomerService/Message/KXCSEvaluateMessage.h"

#include <nlohmann/json.hpp>

#include "KXJsonTree.h"
#include "Message/KXContentTypeDefinition.h"
#include "Message/KXJsonReader.h"
#include "Message/KXJsonWriter.h"
#include "Support/KXLog.h"

namespace quor {

KX_SENT_CONTENT_TYPE(KXCSEvaluateMessage, "KX:CsEva", 0)

KXData KXCSEvaluateMessage::encode() {
  // An extra nested too deeply to be written is refused before anything copies it (a copy
  // recurses as deep as the value).
  const bool hasExtra = extra_ && extra_->is_object() && !extra_->empty();
  if (hasExtra && KXJsonTree::nestsDeeperThan(*extra_, KXJsonTree::kMaxDepth - 1)) {
    return std::nullopt;
  }
  KXDictionary body = KXDictionary::object();
  KXJsonWriter::putIdentifiers(body, ids_);
  body["source"] = source_;
  if (suggest_ && !suggest_->empty()) body["suggest"] = *suggest_;
  body["isresolve"] = resolveStatus_;
  body["type"] = std::to_string(type_);
  if (tagText_ && !tagText_->empty()) body["tag"] = *tagText_;
  // The application's extra entries go last and override any key written above.
  if (hasExtra) KXJsonTree::merge(body, *extra_);
  KXLog::info(KX_LOG_TAG, "KX:CsEva JSON is : %@", {body});
  return KXJsonWriter::write(body);
}

}  // namespace quor
