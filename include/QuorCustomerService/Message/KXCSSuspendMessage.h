#pragma once

#include <cstdint>
#include <memory>

#include "QuorCustomerService/Host/KXMessageContent.h"
#include "QuorCustomerService/Message/KXCSServiceIdentified.h"
#include "QuorCustomerService/QuorCustomerServiceExport.h"

namespace quor {

// "KX:CsSp", sent only, not stored: tells the desk that the user stopped the service.
// Built and filled by the client on the caller's thread, then handed to the host, which encodes it
// on its sending thread.
class QUOR_CS_EXPORT KXCSSuspendMessage : public KXMessageContent, public KXCSServiceIdentified {
 public:
  static std::string getObjectName();
  static uint32_t persistentFlag();
  std::string objectName() const override;
  uint32_t messagePersistentFlag() const override;
  // {"uid", "sid" (the cid), "pid"}, each only when present.
  KXData encode() override;
  // Sent only: does nothing.
  void decodeWithData(const KXData& data) override;

 private:
};

}  // namespace quor
