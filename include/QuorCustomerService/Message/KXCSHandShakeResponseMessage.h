#pragma once

#include <cstdint>
#include <memory>

#include "QuorCustomerService/Host/KXMessageContent.h"
#include "QuorCustomerService/Message/KXCSConfiguration.h"
#include "QuorCustomerService/Message/KXCSLeaveMessageItem.h"
#include "QuorCustomerService/Message/KXCSServiceIdentified.h"
#include "QuorCustomerService/Message/KXCustomerServiceGroupItem.h"
#include "QuorCustomerService/Message/KXEvaluateItem.h"
#include "QuorCustomerService/QuorCustomerServiceExport.h"

namespace quor {

// "KX:CsHsR", received only, not stored: the desk's answer to the handshake, with the
// service's identifiers, type, robot, groups, evaluation and leave-message settings.
// Decoded by the host on its delivery thread, then only read.
class QUOR_CS_EXPORT KXCSHandShakeResponseMessage : public KXMessageContent,
                                                    public KXCSServiceIdentified {
 public:
  static std::string getObjectName();
  static uint32_t persistentFlag();
  std::string objectName() const override;
  uint32_t messagePersistentFlag() const override;
  // Received only: always absent.
  KXData encode() override;
  void decodeWithData(const KXData& data) override;

  // The desk's configuration as one record; the accessors below read and write it field by
  // field (the identifiers: KXCSServiceIdentified).
  const KXCSConfiguration& configuration() const { return config_; }

  // Top-level "status": 0 means the desk could not open the service.
  int32_t code() const { return code_; }
  void setCode(int32_t code) { code_ = code; }
  const KXString& msg() const { return msg_; }
  void setMsg(KXString msg) { msg_ = std::move(msg); }
  const KXCustomerServiceGroupList& groupList() const { return groupList_; }
  void setGroupList(KXCustomerServiceGroupList groupList) { groupList_ = std::move(groupList); }
  const KXString& companyName() const { return config_.companyName; }
  void setCompanyName(KXString companyName) { config_.companyName = std::move(companyName); }
  bool isBlack() const { return config_.isBlack; }
  void setIsBlack(bool isBlack) { config_.isBlack = isBlack; }
  // The service type, one of KXCSServiceType.
  int32_t type() const { return type_; }
  void setType(int32_t type) { type_ = type; }
  int32_t adminTipTime() const { return config_.adminTipTime; }
  void setAdminTipTime(int32_t adminTipTime) { config_.adminTipTime = adminTipTime; }
  const KXString& adminTipWord() const { return config_.adminTipWord; }
  void setAdminTipWord(KXString adminTipWord) { config_.adminTipWord = std::move(adminTipWord); }
  int32_t userTipTime() const { return config_.userTipTime; }
  void setUserTipTime(int32_t userTipTime) { config_.userTipTime = userTipTime; }
  const KXString& userTipWord() const { return config_.userTipWord; }
  void setUserTipWord(KXString userTipWord) { config_.userTipWord = std::move(userTipWord); }
  const KXString& robotName() const { return robotName_; }
  void setRobotName(KXString robotName) { robotName_ = std::move(robotName); }
  const KXString& robotLogo() const { return robotLogo_; }
  void setRobotLogo(KXString robotLogo) { robotLogo_ = std::move(robotLogo); }
  const KXString& robotHelloWord() const { return robotHelloWord_; }
  void setRobotHelloWord(KXString robotHelloWord) { robotHelloWord_ = std::move(robotHelloWord); }
  // "notAutoCha", taken with the same truth value.
  bool requiredChangMode() const { return requiredChangMode_; }
  void setRequiredChangMode(bool requiredChangMode) { requiredChangMode_ = requiredChangMode; }
  bool robotSessionNoEva() const { return config_.robotSessionNoEva; }
  void setRobotSessionNoEva(bool robotSessionNoEva) {
    config_.robotSessionNoEva = robotSessionNoEva;
  }
  bool humanSessionNoEva() const { return config_.humanSessionNoEva; }
  void setHumanSessionNoEva(bool humanSessionNoEva) {
    config_.humanSessionNoEva = humanSessionNoEva;
  }
  const KXEvaluateItemList& humanEvaluationItems() const { return config_.humanEvaluateItems; }
  void setHumanEvaluationItems(KXEvaluateItemList humanEvaluationItems) {
    config_.humanEvaluateItems = std::move(humanEvaluationItems);
  }
  // "suspendWhenQuit" when the desk sends it, else the host's csSuspendWhenLeave.
  bool suspendWhenQuit() const { return suspendWhenQuit_; }
  void setSuspendWhenQuit(bool suspendWhenQuit) { suspendWhenQuit_ = suspendWhenQuit; }
  uint64_t evaEntryPoint() const { return config_.evaEntryPoint; }
  void setEvaEntryPoint(uint64_t evaEntryPoint) { config_.evaEntryPoint = evaEntryPoint; }
  int32_t reportResolveStatus() const { return config_.reportResolveStatus; }
  void setReportResolveStatus(int32_t reportResolveStatus) {
    config_.reportResolveStatus = reportResolveStatus;
  }
  int32_t disableLocation() const { return config_.disableLocation; }
  void setDisableLocation(int32_t disableLocation) { config_.disableLocation = disableLocation; }
  uint64_t evaType() const { return config_.evaType; }
  void setEvaType(uint64_t evaType) { config_.evaType = evaType; }
  uint64_t leaveMessageType() const { return config_.leaveMessageType; }
  void setLeaveMessageType(uint64_t leaveMessageType) {
    config_.leaveMessageType = leaveMessageType;
  }
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
  // The whole "evaConf" object; null when absent.
  const std::shared_ptr<const KXDictionary>& evaConfig() const { return evaConfig_; }
  void setEvaConfig(std::shared_ptr<const KXDictionary> evaConfig) {
    evaConfig_ = std::move(evaConfig);
  }

 private:
  int32_t code_ = 0;
  KXString msg_;
  KXCSConfiguration config_;
  KXCustomerServiceGroupList groupList_;
  int32_t type_ = 0;
  KXString robotName_;
  KXString robotLogo_;
  KXString robotHelloWord_;
  bool requiredChangMode_ = false;
  bool suspendWhenQuit_ = false;
  std::shared_ptr<const KXDictionary> evaConfig_;
};

}  // namespace quor
