#pragma once

#include <cstdint>
#include <memory>

#include "QuorCustomerService/Host/KXTypes.h"
#include "QuorCustomerService/Message/KXCSLeaveMessageItem.h"
#include "QuorCustomerService/Message/KXEvaluateItem.h"
#include "QuorCustomerService/QuorCustomerServiceExport.h"

namespace quor {

// The service configuration that the client builds from a successful handshake response and
// hands to the application's success callback (on the main thread). A new record for every
// response; the application owns it from then on. Item lists are shared with the response.
class QUOR_CS_EXPORT KXCustomerServiceConfig {
 public:
  bool isBlack() const { return isBlack_; }
  void setIsBlack(bool isBlack) { isBlack_ = isBlack; }
  const KXString& companyName() const { return companyName_; }
  void setCompanyName(KXString companyName) { companyName_ = std::move(companyName); }
  // Never set by the library: the property is the application's.
  const KXString& companyUrl() const { return companyUrl_; }
  void setCompanyUrl(KXString companyUrl) { companyUrl_ = std::move(companyUrl); }
  bool robotSessionNoEva() const { return robotSessionNoEva_; }
  void setRobotSessionNoEva(bool robotSessionNoEva) { robotSessionNoEva_ = robotSessionNoEva; }
  bool humanSessionNoEva() const { return humanSessionNoEva_; }
  void setHumanSessionNoEva(bool humanSessionNoEva) { humanSessionNoEva_ = humanSessionNoEva; }
  const KXEvaluateItemList& humanEvaluateItems() const { return humanEvaluateItems_; }
  void setHumanEvaluateItems(KXEvaluateItemList humanEvaluateItems) {
    humanEvaluateItems_ = std::move(humanEvaluateItems);
  }
  int32_t adminTipTime() const { return adminTipTime_; }
  void setAdminTipTime(int32_t adminTipTime) { adminTipTime_ = adminTipTime; }
  const KXString& adminTipWord() const { return adminTipWord_; }
  void setAdminTipWord(KXString adminTipWord) { adminTipWord_ = std::move(adminTipWord); }
  int32_t userTipTime() const { return userTipTime_; }
  void setUserTipTime(int32_t userTipTime) { userTipTime_ = userTipTime; }
  const KXString& userTipWord() const { return userTipWord_; }
  void setUserTipWord(KXString userTipWord) { userTipWord_ = std::move(userTipWord); }
  uint64_t evaEntryPoint() const { return evaEntryPoint_; }
  void setEvaEntryPoint(uint64_t evaEntryPoint) { evaEntryPoint_ = evaEntryPoint; }
  uint64_t evaType() const { return evaType_; }
  void setEvaType(uint64_t evaType) { evaType_ = evaType; }
  int32_t reportResolveStatus() const { return reportResolveStatus_; }
  void setReportResolveStatus(int32_t reportResolveStatus) {
    reportResolveStatus_ = reportResolveStatus;
  }
  uint64_t leaveMessageType() const { return leaveMessageType_; }
  void setLeaveMessageType(uint64_t leaveMessageType) { leaveMessageType_ = leaveMessageType; }
  int32_t disableLocation() const { return disableLocation_; }
  void setDisableLocation(int32_t disableLocation) { disableLocation_ = disableLocation; }
  const KXString& leaveMessageWebUrl() const { return leaveMessageWebUrl_; }
  void setLeaveMessageWebUrl(KXString leaveMessageWebUrl) {
    leaveMessageWebUrl_ = std::move(leaveMessageWebUrl);
  }
  const KXCSLeaveMessageItemList& leaveMessageNativeInfo() const { return leaveMessageNativeInfo_; }
  void setLeaveMessageNativeInfo(KXCSLeaveMessageItemList leaveMessageNativeInfo) {
    leaveMessageNativeInfo_ = std::move(leaveMessageNativeInfo);
  }
  const KXString& announceMsg() const { return announceMsg_; }
  void setAnnounceMsg(KXString announceMsg) { announceMsg_ = std::move(announceMsg); }
  const KXString& announceClickUrl() const { return announceClickUrl_; }
  void setAnnounceClickUrl(KXString announceClickUrl) {
    announceClickUrl_ = std::move(announceClickUrl);
  }

 private:
  bool isBlack_ = false;
  KXString companyName_;
  KXString companyUrl_;
  bool robotSessionNoEva_ = false;
  bool humanSessionNoEva_ = false;
  KXEvaluateItemList humanEvaluateItems_;
  int32_t adminTipTime_ = 0;
  KXString adminTipWord_;
  int32_t userTipTime_ = 0;
  KXString userTipWord_;
  uint64_t evaEntryPoint_ = 0;
  uint64_t evaType_ = 0;
  int32_t reportResolveStatus_ = 0;
  uint64_t leaveMessageType_ = 0;
  int32_t disableLocation_ = 0;
  KXString leaveMessageWebUrl_;
  KXCSLeaveMessageItemList leaveMessageNativeInfo_;
  KXString announceMsg_;
  KXString announceClickUrl_;
};

}  // namespace quor
