#include "QuorCustomerService/Message/KXCSEvaluateMessage.h"

#include "Support/KXLog.h"
#include "Message/KXContentTypeDefinition.h"
#include "Message/KXJsonWriter.h"

namespace quor {

KX_SENT_CONTENT_TYPE(KXCSEvaluateMessage, "KX:CsEva", 0)

KXData KXCSEvaluateMessage::encode() {
  KXDictionary body = KXDictionary::object();
  KXJsonWriter::putIdentifiers(body, uid_, cid_, pid_);
  body["source"] = source_;
  if (suggest_ && !suggest_->empty()) body["suggest"] = *suggest_;
  body["isresolve"] = resolveStatus_;
  body["type"] = std::to_string(type_);
  if (tagText_ && !tagText_->empty()) body["tag"] = *tagText_;
  // The application's extra entries go last and override any key written above.
  if (extra_ && extra_->is_object()) {
    for (const auto& entry : extra_->items()) body[entry.key()] = entry.value();
  }
  KXLog::info(KX_LOG_TAG, "KX:CsEva JSON is : %@", {body});
  return KXJsonWriter::write(body);
}

}  // namespace quor
