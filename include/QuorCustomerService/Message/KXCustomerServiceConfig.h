#pragma once

#include <cstdint>
#include <memory>

#include "QuorCustomerService/Host/KXTypes.h"
#include "QuorCustomerService/Message/KXCSConfiguration.h"
#include "QuorCustomerService/Message/KXCSLeaveMessageItem.h"
#include "QuorCustomerService/Message/KXEvaluateItem.h"
#include "QuorCustomerService/QuorCustomerServiceExport.h"

namespace quor {

// The service configuration that the client builds from a successful handshake response and
// hands to the application's success callback (on the main thread). A new record for every
// response; the application owns it from then on. Item lists are shared with the response.
class QUOR_CS_EXPORT KXCustomerServiceConfig {
 public:
  KXCustomerServiceConfig() = default;
  // The configuration as the response holds it; companyUrl stays unset.
  explicit KXCustomerServiceConfig(KXCSConfiguration configuration)
      : config_(std::move(configuration)) {}
  const KXCSConfiguration& configuration() const { return config_; }

  bool isBlack() const { return config_.isBlack; }
  void setIsBlack(bool isBlack) { config_.isBlack = isBlack; }
  const KXString& companyName() const { return config_.companyName; }
  void setCompanyName(KXString companyName) { config_.companyName = std::move(companyName); }
  // Never set by the library: the property is the application's.
  const KXString& companyUrl() const { return companyUrl_; }
  void setCompanyUrl(KXString companyUrl) { companyUrl_ = std::move(companyUrl); }
  bool robotSessionNoEva() const { return config_.robotSessionNoEva; }
  void setRobotSessionNoEva(bool robotSessionNoEva) {
    config_.robotSessionNoEva = robotSessionNoEva;
  }
  bool humanSessionNoEva() const { return config_.humanSessionNoEva; }
  void setHumanSessionNoEva(bool humanSessionNoEva) {
    config_.humanSessionNoEva = humanSessionNoEva;
  }
  const KXEvaluateItemList& humanEvaluateItems() const { return config_.humanEvaluateItems; }
  void setHumanEvaluateItems(KXEvaluateItemList humanEvaluateItems) {
    config_.humanEvaluateItems = std::move(humanEvaluateItems);
  }
  int32_t adminTipTime() const { return config_.adminTipTime; }
  void setAdminTipTime(int32_t adminTipTime) { config_.adminTipTime = adminTipTime; }
  const KXString& adminTipWord() const { return config_.adminTipWord; }
  void setAdminTipWord(KXString adminTipWord) { config_.adminTipWord = std::move(adminTipWord); }
  int32_t userTipTime() const { return config_.userTipTime; }
  void setUserTipTime(int32_t userTipTime) { config_.userTipTime = userTipTime; }
  const KXString& userTipWord() const { return config_.userTipWord; }
  void setUserTipWord(KXString userTipWord) { config_.userTipWord = std::move(userTipWord); }
  uint64_t evaEntryPoint() const { return config_.evaEntryPoint; }
  void setEvaEntryPoint(uint64_t evaEntryPoint) { config_.evaEntryPoint = evaEntryPoint; }
  uint64_t evaType() const { return config_.evaType; }
  void setEvaType(uint64_t evaType) { config_.evaType = evaType; }
  int32_t reportResolveStatus() const { return config_.reportResolveStatus; }
  void setReportResolveStatus(int32_t reportResolveStatus) {
    config_.reportResolveStatus = reportResolveStatus;
  }
  uint64_t leaveMessageType() const { return config_.leaveMessageType; }
  void setLeaveMessageType(uint64_t leaveMessageType) {
    config_.leaveMessageType = leaveMessageType;
  }
  int32_t disableLocation() const { return config_.disableLocation; }
  void setDisableLocation(int32_t disableLocation) { config_.disableLocation = disableLocation; }
  const KXString& leaveMessageWebUrl() const { return config_.leaveMessageWebUrl; }
  void setLeaveMessageWebUrl(KXString leaveMessageWebUrl) {
    config_.leaveMessageWebUrl = std::move(leaveMessageWebUrl);
  }
  const KXCSLeaveMessageItemList& leaveMessageNativeInfo() const {
    return config_.leaveMessageNativeInfo;
  }
  void setLeaveMessageNativeInfo(KXCSLeaveMessageItemList leaveMessageNativeInfo) {
    config_.leaveMessageNativeInfo = std::move(leaveMessageNativeInfo);
  }
  const KXString& announceMsg() const { return config_.announceMsg; }
  void setAnnounceMsg(KXString announceMsg) { config_.announceMsg = std::move(announceMsg); }
  const KXString& announceClickUrl() const { return config_.announceClickUrl; }
  void setAnnounceClickUrl(KXString announceClickUrl) {
    config_.announceClickUrl = std::move(announceClickUrl);
  }

 private:
  KXCSConfiguration config_;
  KXString companyUrl_;
};

}  // namespace quor
