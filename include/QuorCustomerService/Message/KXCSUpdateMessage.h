#pragma once

#include <cstdint>
#include <memory>

#include "QuorCustomerService/Host/KXMessageContent.h"
#include "QuorCustomerService/QuorCustomerServiceExport.h"

namespace quor {

// "KX:CsUpdate", received only, not stored: the service's state changed.
// Made and decoded by the host on its delivery thread, then only read.
class QUOR_CS_EXPORT KXCSUpdateMessage : public KXMessageContent {
 public:
  static std::string getObjectName();
  static uint32_t persistentFlag();
  std::string objectName() const override;
  uint32_t messagePersistentFlag() const override;
  // Received only: always absent.
  KXData encode() override;
  // Reads the body; never throws.
  void decodeWithData(const KXData& data) override;

  // The desk's "sid".
  const KXString& cid() const { return cid_; }
  void setCid(KXString cid) { cid_ = std::move(cid); }
  int32_t serviceStatus() const { return serviceStatus_; }
  void setServiceStatus(int32_t serviceStatus) { serviceStatus_ = serviceStatus; }

 private:
  KXString cid_;
  int32_t serviceStatus_ = 0;
};

}  // namespace quor
