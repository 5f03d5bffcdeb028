#pragma once

#include <cstdint>
#include <memory>

#include "QuorCustomerService/Host/KXMessageContent.h"
#include "QuorCustomerService/Message/KXCSServiceIdentified.h"
#include "QuorCustomerService/QuorCustomerServiceExport.h"

namespace quor {

// "KX:CsCha", sent only, not stored: asks the desk for a human agent, optionally of one group.
// Built and filled by the client on the caller's thread, then handed to the host, which encodes it
// on its sending thread.
class QUOR_CS_EXPORT KXCSChangeModeMessage : public KXMessageContent, public KXCSServiceIdentified {
 public:
  static std::string getObjectName();
  static uint32_t persistentFlag();
  std::string objectName() const override;
  uint32_t messagePersistentFlag() const override;
  // {"uid", "sid" (the cid), "pid", "groupid"}, each only when present.
  KXData encode() override;
  // Sent only: does nothing.
  void decodeWithData(const KXData& data) override;

  const KXString& groupid() const { return groupid_; }
  void setGroupid(KXString groupid) { groupid_ = std::move(groupid); }

 private:
  KXString groupid_;
};

}  // namespace quor
