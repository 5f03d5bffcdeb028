#pragma once

#include <cstdint>
#include <memory>

#include "QuorCustomerService/Host/KXMessageContent.h"
#include "QuorCustomerService/QuorCustomerServiceExport.h"

namespace quor {

// "KX:CsLM", sent only, not stored: the filled-in leave-message form.
// Built and filled by the client on the caller's thread, then handed to the host, which encodes it
// on its sending thread.
class QUOR_CS_EXPORT KXCSLeaveMessage : public KXMessageContent {
 public:
  static std::string getObjectName();
  static uint32_t persistentFlag();
  std::string objectName() const override;
  uint32_t messagePersistentFlag() const override;
  // The dictionary itself as the whole body; absent when the dictionary is absent or cannot be
  // written.
  KXData encode() override;
  // Sent only: does nothing.
  void decodeWithData(const KXData& data) override;

  // The form's values, held by shared reference.
  const std::shared_ptr<const KXDictionary>& leaveMessageDic() const { return leaveMessageDic_; }
  void setLeaveMessageDic(std::shared_ptr<const KXDictionary> leaveMessageDic) {
    leaveMessageDic_ = std::move(leaveMessageDic);
  }

 private:
  std::shared_ptr<const KXDictionary> leaveMessageDic_;
};

}  // namespace quor
