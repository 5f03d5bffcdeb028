#pragma once

#include <cstdint>
#include <memory>

#include "QuorCustomerService/Host/KXMessageContent.h"
#include "QuorCustomerService/Message/KXCSLeaveMessageItem.h"
#include "QuorCustomerService/Message/KXCustomerServiceGroupItem.h"
#include "QuorCustomerService/Message/KXEvaluateItem.h"
#include "QuorCustomerService/QuorCustomerServiceExport.h"

namespace quor {

// "KX:CsHsR", received only, not stored: the desk's answer to the handshake, with the
// service's identifiers, type, robot, groups, evaluation and leave-message settings.
// Decoded by the host on its delivery thread, then only read.
class QUOR_CS_EXPORT KXCSHandShakeResponseMessage : public KXMessageContent {
 public:
  static std::string getObjectName();
  static uint32_t persistentFlag();
  std::string objectName() const override;
  uint32_t messagePersistentFlag() const override;
  // Received only: always absent.
  KXData encode() override;
  void decodeWithData(const KXData& data) override;

  // Top-level "status": 0 means the desk could not open the service.
  int32_t code() const { return code_; }
  void setCode(int32_t code) { code_ = code; }
  const KXString& msg() const { return msg_; }
  void setMsg(KXString msg) { msg_ = std::move(msg); }
  const KXString& uid() const { return uid_; }
  void setUid(KXString uid) { uid_ = std::move(uid); }
  // The desk's "sid".
  const KXString& cid() const { return cid_; }
  void setCid(KXString cid) { cid_ = std::move(cid); }
  const KXString& pid() const { return pid_; }
  void setPid(KXString pid) { pid_ = std::move(pid); }
  const KXCustomerServiceGroupList& groupList() const { return groupList_; }
  void setGroupList(KXCustomerServiceGroupList groupList) { groupList_ = std::move(groupList); }
  const KXString& companyName() const { return companyName_; }
  void setCompanyName(KXString companyName) { companyName_ = std::move(companyName); }
  bool isBlack() const { return isBlack_; }
  void setIsBlack(bool isBlack) { isBlack_ = isBlack; }
  // The service type, one of KXCSServiceType.
  int32_t type() const { return type_; }
  void setType(int32_t type) { type_ = type; }
  int32_t adminTipTime() const { return adminTipTime_; }
  void setAdminTipTime(int32_t adminTipTime) { adminTipTime_ = adminTipTime; }
  const KXString& adminTipWord() const { return adminTipWord_; }
  void setAdminTipWord(KXString adminTipWord) { adminTipWord_ = std::move(adminTipWord); }
  int32_t userTipTime() const { return userTipTime_; }
  void setUserTipTime(int32_t userTipTime) { userTipTime_ = userTipTime; }
  const KXString& userTipWord() const { return userTipWord_; }
  void setUserTipWord(KXString userTipWord) { userTipWord_ = std::move(userTipWord); }
  const KXString& robotName() const { return robotName_; }
  void setRobotName(KXString robotName) { robotName_ = std::move(robotName); }
  const KXString& robotLogo() const { return robotLogo_; }
  void setRobotLogo(KXString robotLogo) { robotLogo_ = std::move(robotLogo); }
  const KXString& robotHelloWord() const { return robotHelloWord_; }
  void setRobotHelloWord(KXString robotHelloWord) { robotHelloWord_ = std::move(robotHelloWord); }
  // "notAutoCha", taken with the same truth value.
  bool requiredChangMode() const { return requiredChangMode_; }
  void setRequiredChangMode(bool requiredChangMode) { requiredChangMode_ = requiredChangMode; }
  bool robotSessionNoEva() const { return robotSessionNoEva_; }
  void setRobotSessionNoEva(bool robotSessionNoEva) { robotSessionNoEva_ = robotSessionNoEva; }
  bool humanSessionNoEva() const { return humanSessionNoEva_; }
  void setHumanSessionNoEva(bool humanSessionNoEva) { humanSessionNoEva_ = humanSessionNoEva; }
  const KXEvaluateItemList& humanEvaluationItems() const { return humanEvaluationItems_; }
  void setHumanEvaluationItems(KXEvaluateItemList humanEvaluationItems) {
    humanEvaluationItems_ = std::move(humanEvaluationItems);
  }
  // "suspendWhenQuit" when the desk sends it, else the host's csSuspendWhenLeave.
  bool suspendWhenQuit() const { return suspendWhenQuit_; }
  void setSuspendWhenQuit(bool suspendWhenQuit) { suspendWhenQuit_ = suspendWhenQuit; }
  uint64_t evaEntryPoint() const { return evaEntryPoint_; }
  void setEvaEntryPoint(uint64_t evaEntryPoint) { evaEntryPoint_ = evaEntryPoint; }
  int32_t reportResolveStatus() const { return reportResolveStatus_; }
  void setReportResolveStatus(int32_t reportResolveStatus) {
    reportResolveStatus_ = reportResolveStatus;
  }
  int32_t disableLocation() const { return disableLocation_; }
  void setDisableLocation(int32_t disableLocation) { disableLocation_ = disableLocation; }
  uint64_t evaType() const { return evaType_; }
  void setEvaType(uint64_t evaType) { evaType_ = evaType; }
  uint64_t leaveMessageType() const { return leaveMessageType_; }
  void setLeaveMessageType(uint64_t leaveMessageType) { leaveMessageType_ = leaveMessageType; }
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
  // The whole "evaConf" object; null when absent.
  const std::shared_ptr<const KXDictionary>& evaConfig() const { return evaConfig_; }
  void setEvaConfig(std::shared_ptr<const KXDictionary> evaConfig) {
    evaConfig_ = std::move(evaConfig);
  }

 private:
  int32_t code_ = 0;
  KXString msg_;
  KXString uid_;
  KXString cid_;
  KXString pid_;
  KXCustomerServiceGroupList groupList_;
  KXString companyName_;
  bool isBlack_ = false;
  int32_t type_ = 0;
  int32_t adminTipTime_ = 0;
  KXString adminTipWord_;
  int32_t userTipTime_ = 0;
  KXString userTipWord_;
  KXString robotName_;
  KXString robotLogo_;
  KXString robotHelloWord_;
  bool requiredChangMode_ = false;
  bool robotSessionNoEva_ = false;
  bool humanSessionNoEva_ = false;
  KXEvaluateItemList humanEvaluationItems_;
  bool suspendWhenQuit_ = false;
  uint64_t evaEntryPoint_ = 0;
  int32_t reportResolveStatus_ = 0;
  int32_t disableLocation_ = 0;
  uint64_t evaType_ = 0;
  uint64_t leaveMessageType_ = 0;
  KXString leaveMessageWebUrl_;
  KXCSLeaveMessageItemList leaveMessageNativeInfo_;
  KXString announceMsg_;
  KXString announceClickUrl_;
  std::shared_ptr<const KXDictionary> evaConfig_;
};

}  // namespace quor
