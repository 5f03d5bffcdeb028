#pragma once

#include <cstdint>
#include <memory>

#include "QuorCustomerService/Host/KXMessageContent.h"
#include "QuorCustomerService/QuorCustomerServiceExport.h"

namespace quor {

// "KX:CsCha", sent only, not stored: asks the desk for a human agent, optionally of one group.
// Built and filled by the client on the caller's thread, then handed to the host, which encodes it
// on its sending thread.
class QUOR_CS_EXPORT KXCSChangeModeMessage : public KXMessageContent {
 public:
  static std::string getObjectName();
  static uint32_t persistentFlag();
  std::string objectName() const override;
  uint32_t messagePersistentFlag() const override;
  // {"uid", "sid" (the cid), "pid", "groupid"}, each only when present.
  KXData encode() override;
  // Sent only: does nothing.
  void decodeWithData(const KXData& data) override;

  const KXString& uid() const { return uid_; }
  void setUid(KXString uid) { uid_ = std::move(uid); }
  const KXString& cid() const { return cid_; }
  void setCid(KXString cid) { cid_ = std::move(cid); }
  const KXString& pid() const { return pid_; }
  void setPid(KXString pid) { pid_ = std::move(pid); }
  const KXString& groupid() const { return groupid_; }
  void setGroupid(KXString groupid) { groupid_ = std::move(groupid); }

 private:
  KXString uid_;
  KXString cid_;
  KXString pid_;
  KXString groupid_;
};

}  // namespace quor
