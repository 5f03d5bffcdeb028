#pragma once

#include <cstdint>
#include <memory>

#include "QuorCustomerService/Host/KXMessageContent.h"
#include "QuorCustomerService/Message/KXCustomerServiceInfo.h"
#include "QuorCustomerService/QuorCustomerServiceExport.h"

namespace quor {

// "KX:CsHs", sent only, not stored: the first message of every service. Its body is the customer's
// information and nothing else. Built and filled by the client on the caller's thread, then handed
// to the host, which encodes it on its sending thread.
class QUOR_CS_EXPORT KXCSHandShakeMessage : public KXMessageContent {
 public:
  static std::string getObjectName();
  static uint32_t persistentFlag();
  std::string objectName() const override;
  uint32_t messagePersistentFlag() const override;
  // The info's encode(); absent when info is absent.
  KXData encode() override;
  // Sent only: does nothing.
  void decodeWithData(const KXData& data) override;

  // Held by shared reference; absent until set.
  const std::shared_ptr<KXCustomerServiceInfo>& info() const { return info_; }
  void setInfo(std::shared_ptr<KXCustomerServiceInfo> info) { info_ = std::move(info); }

 private:
  std::shared_ptr<KXCustomerServiceInfo> info_;
};

}  // namespace quor
