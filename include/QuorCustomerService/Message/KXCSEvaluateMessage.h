#pragma once

#include <cstdint>
#include <memory>

#include "QuorCustomerService/Host/KXMessageContent.h"
#include "QuorCustomerService/Message/KXCSServiceIdentified.h"
#include "QuorCustomerService/QuorCustomerServiceExport.h"

namespace quor {

// "KX:CsEva", sent only, not stored: the user's rating of the robot or the human agent.
// Built and filled by the client on the caller's thread, then handed to the host, which encodes it
// on its sending thread.
class QUOR_CS_EXPORT KXCSEvaluateMessage : public KXMessageContent, public KXCSServiceIdentified {
 public:
  static std::string getObjectName();
  static uint32_t persistentFlag();
  std::string objectName() const override;
  uint32_t messagePersistentFlag() const override;
  // The rating's body; "extra" entries are merged last and override any key. Absent when the body
  // cannot be written.
  KXData encode() override;
  // Sent only: does nothing.
  void decodeWithData(const KXData& data) override;

  // The star value.
  int32_t source() const { return source_; }
  void setSource(int32_t source) { source_ = source; }
  const KXString& suggest() const { return suggest_; }
  void setSuggest(KXString suggest) { suggest_ = std::move(suggest); }
  // Written under "isresolve".
  int32_t resolveStatus() const { return resolveStatus_; }
  void setResolveStatus(int32_t resolveStatus) { resolveStatus_ = resolveStatus; }
  // 0 the robot, 1 a human agent; written as a decimal string.
  int32_t type() const { return type_; }
  void setType(int32_t type) { type_ = type; }
  // Written under "tag".
  const KXString& tagText() const { return tagText_; }
  void setTagText(KXString tagText) { tagText_ = std::move(tagText); }
  // Entries merged into the top level of the body; null when absent.
  const std::shared_ptr<const KXDictionary>& extra() const { return extra_; }
  void setExtra(std::shared_ptr<const KXDictionary> extra) { extra_ = std::move(extra); }

 private:
  int32_t source_ = 0;
  KXString suggest_;
  int32_t resolveStatus_ = 0;
  int32_t type_ = 0;
  KXString tagText_;
  std::shared_ptr<const KXDictionary> extra_;
};

}  // namespace quor
