#pragma once

#include <cstdint>
#include <memory>

#include "QuorCustomerService/Host/KXMessageContent.h"
#include "QuorCustomerService/QuorCustomerServiceExport.h"

namespace quor {

// "KX:CsPullEva", received only, not stored: the desk asks the user to rate the service.
// Made and decoded by the host on its delivery thread, then only read.
class QUOR_CS_EXPORT KXCSPullEvaluateMessage : public KXMessageContent {
 public:
  static std::string getObjectName();
  static uint32_t persistentFlag();
  std::string objectName() const override;
  uint32_t messagePersistentFlag() const override;
  // Received only: always absent.
  KXData encode() override;
  // Reads the body; never throws.
  void decodeWithData(const KXData& data) override;

  // The desk's "msgId".
  const KXString& evaluateId() const { return evaluateId_; }
  void setEvaluateId(KXString evaluateId) { evaluateId_ = std::move(evaluateId); }

 private:
  KXString evaluateId_;
};

}  // namespace quor
