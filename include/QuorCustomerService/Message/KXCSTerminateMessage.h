#pragma once

#include <cstdint>
#include <memory>

#include "QuorCustomerService/Host/KXMessageContent.h"
#include "QuorCustomerService/QuorCustomerServiceExport.h"

namespace quor {

// "KX:CsEnd", received only, not stored: the desk ends the service.
// Made and decoded by the host on its delivery thread, then only read.
class QUOR_CS_EXPORT KXCSTerminateMessage : public KXMessageContent {
 public:
  static std::string getObjectName();
  static uint32_t persistentFlag();
  std::string objectName() const override;
  uint32_t messagePersistentFlag() const override;
  // Received only: always absent.
  KXData encode() override;
  // Reads the body; never throws.
  void decodeWithData(const KXData& data) override;

  // 0 the service is over, 1 the agent left and the robot takes over.
  int32_t code() const { return code_; }
  void setCode(int32_t code) { code_ = code; }
  const KXString& msg() const { return msg_; }
  void setMsg(KXString msg) { msg_ = std::move(msg); }
  // "cid", else "sid".
  const KXString& cid() const { return cid_; }
  void setCid(KXString cid) { cid_ = std::move(cid); }

 private:
  int32_t code_ = 0;
  KXString msg_;
  KXString cid_;
};

}  // namespace quor
