#pragma once

#include <cstdint>
#include <memory>

#include "QuorCustomerService/Host/KXMessageContent.h"
#include "QuorCustomerService/QuorCustomerServiceExport.h"

namespace quor {

// "KX:CsChaR", received only, not stored: the desk's answer to a mode-change request.
// Made and decoded by the host on its delivery thread, then only read.
class QUOR_CS_EXPORT KXCSChangeModeResponseMessage : public KXMessageContent {
 public:
  static std::string getObjectName();
  static uint32_t persistentFlag();
  std::string objectName() const override;
  uint32_t messagePersistentFlag() const override;
  // Received only: always absent.
  KXData encode() override;
  // Reads the body; never throws.
  void decodeWithData(const KXData& data) override;

  // The desk's "status" on success, 2 when the desk reports a failure.
  int32_t result() const { return result_; }
  void setResult(int32_t result) { result_ = result; }
  // The desk's failure text; set only on failure.
  const KXString& errMsg() const { return errMsg_; }
  void setErrMsg(KXString errMsg) { errMsg_ = std::move(errMsg); }
  // {"evaConfig": satisfaction} when the desk sent "satisfaction"; null otherwise.
  const std::shared_ptr<const KXDictionary>& evaConfig() const { return evaConfig_; }
  void setEvaConfig(std::shared_ptr<const KXDictionary> evaConfig) {
    evaConfig_ = std::move(evaConfig);
  }

 private:
  int32_t result_ = 0;
  KXString errMsg_;
  std::shared_ptr<const KXDictionary> evaConfig_;
};

}  // namespace quor
