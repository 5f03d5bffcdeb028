#pragma once

#include <cstdint>
#include <memory>

#include "QuorCustomerService/Host/KXMessageContent.h"
#include "QuorCustomerService/Message/KXCSServiceIdentifiers.h"
#include "QuorCustomerService/QuorCustomerServiceExport.h"

namespace quor {

// "KX:CsSp", sent only, not stored: tells the desk that the user stopped the service.
// Built and filled by the client on the caller's thread, then handed to the host, which encodes it
// on its sending thread.
class QUOR_CS_EXPORT KXCSSuspendMessage : public KXMessageContent {
 public:
  static std::string getObjectName();
  static uint32_t persistentFlag();
  std::string objectName() const override;
  uint32_t messagePersistentFlag() const override;
  // {"uid", "sid" (the cid), "pid"}, each only when present.
  KXData encode() override;
  // Sent only: does nothing.
  void decodeWithData(const KXData& data) override;

  const KXString& uid() const { return ids_.uid; }
  void setUid(KXString uid) { ids_.uid = std::move(uid); }
  const KXString& cid() const { return ids_.cid; }
  void setCid(KXString cid) { ids_.cid = std::move(cid); }
  const KXString& pid() const { return ids_.pid; }
  void setPid(KXString pid) { ids_.pid = std::move(pid); }
  const KXCSServiceIdentifiers& identifiers() const { return ids_; }
  void setIdentifiers(KXCSServiceIdentifiers ids) { ids_ = std::move(ids); }

 private:
  KXCSServiceIdentifiers ids_;
};

}  // namespace quor
