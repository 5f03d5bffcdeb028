#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <type_traits>

#include "QuorCustomerService/Extension/KXCustomerServiceReceiveMessageDelegate.h"
#include "QuorCustomerService/Host/KXMessage.h"
#include "QuorCustomerService/Host/KXTypes.h"
#include "QuorCustomerService/KXCustomerServiceConstants.h"
#include "QuorCustomerService/Message/KXCustomerServiceInfo.h"
#include "QuorCustomerService/Message/KXCustomerServiceSession.h"
#include "QuorCustomerService/QuorCustomerServiceExport.h"

namespace quor {

class KXClientState;

// Outcome of a leave-message send, called on the thread on which the host reports it.
using KXLeaveMessageSuccessBlock = std::function<void(int64_t messageId)>;
using KXLeaveMessageFailureBlock = std::function<void(int64_t errorCode, int64_t messageId)>;

// The one object through which the application talks to customer service.
//
// Threads:
// - Every operation may be called from any thread and runs on the caller's thread; none
//   blocks on I/O or waits for the desk. Outcomes arrive later through the callbacks.
// - Received messages are handled on the host's delivery thread (through the extension
//   module): session updates, local notices, the robot greeting, the evaluation-configuration
//   callback and the automatic switch to a human agent happen there.
// - The success, error, mode, pull-evaluation, group-selection and quit callbacks, every change
//   of currentCSModeType that goes with a mode callback, and the stop that follows an end
//   message run in closures posted to the main thread (KXMainThreadDispatcher). Those closures
//   look the session's callbacks up when they run, so a stop in between silences them.
// - The leave-message callbacks run on the thread on which the host reports the send.
// - The handshake's send confirmation sets handShakeMessageSendTime on the host's thread.
// Callbacks may call any operation of the client again (no lock is held while they run).
class QUOR_CS_EXPORT KXCustomerServiceClient : public KXCustomerServiceReceiveMessageDelegate {
 public:
  using SessionMap = std::map<std::string, std::shared_ptr<KXCustomerServiceSession>>;

  // The shared client, created on the first call (safely under concurrent first calls) and
  // never destroyed.
  static KXCustomerServiceClient& sharedCustomerServiceClient();

  // The desk of the service started last; absent after every stop.
  KXString kefuId() const;
  void setKefuId(KXString kefuId);
  // The current service mode: 0 at every start, then changed only together with a mode
  // callback.
  KXCSModeType currentCSModeType() const;
  void setCurrentCSModeType(KXCSModeType mode);
  // One session per desk id (a copy of the table; the sessions themselves are shared).
  SessionMap customerServiceSessions() const;
  void setCustomerServiceSessions(SessionMap sessions);
  // The host's send time of the last confirmed handshake; control messages sent before it are
  // ignored. 0 until a handshake is confirmed.
  int64_t handShakeMessageSendTime() const;
  void setHandShakeMessageSendTime(int64_t sentTime);

  // startCustomerService:info:onSuccess:onError:onModeType:onPullEvaluation:onSelectGroup:onQuit:
  // Records the callbacks in the desk's session (made on the first start) and sends the
  // handshake with the customer's information (may be null). An absent desk id has no session:
  // the callbacks are not kept and the handshake goes to an absent target.
  void startCustomerService(const KXString& kefuId, std::shared_ptr<KXCustomerServiceInfo> info,
                            KXSuccessBlock onSuccess, KXErrorBlock onError,
                            KXModeTypeBlock onModeType, KXPullEvaluationBlock onPullEvaluation,
                            KXSelectGroupBlock onSelectGroup, KXQuitBlock onQuit);
  // stopCustomerService: sends a suspend message when the desk asked for one, clears kefuId and
  // the session's seven callbacks, and marks the session as quit.
  void stopCustomerService(const KXString& kefuId);

  // onCustomerServiceMessageReceived: handles a received message on the calling (delivery)
  // thread. True for a change-mode response, end, handshake response or update, and for any
  // of the five control types older than the last confirmed handshake; false otherwise.
  bool onCustomerServiceMessageReceived(const std::shared_ptr<KXMessage>& message) override;

  // notifyCustomerService:warning:saveToDB: shows a grey notice in the desk's conversation.
  // Note the inverted flag: true delivers the notice without storing it; false stores it
  // and delivers the stored record.
  void notifyCustomerService(const KXString& kefuId, const KXString& warning, bool saveToDB);
  // onReceiveFakeMessage: hands a local record (possibly null) to the host's receive path.
  void onReceiveFakeMessage(std::shared_ptr<KXMessage> message);

  // switchToHumanMode: asks for a human agent. When the desk offered groups, posts the
  // group-selection callback instead and sends nothing.
  void switchToHumanMode(const KXString& kefuId);
  // selectCustomerServiceGroup:withGroupId: sends the mode-change request for that group.
  void selectCustomerServiceGroup(const KXString& kefuId, const KXString& groupId);
  // sendChangeModelMessage:withGroupId: sends one mode-change request (group may be absent).
  void sendChangeModelMessage(const KXString& kefuId, const KXString& groupId);

  // evaluateCustomerService:knownledgeId:robotValue:suggest: rates the robot's answer.
  void evaluateCustomerService(const KXString& kefuId, const KXString& knownledgeId,
                               bool robotValue, const KXString& suggest);
  // Only a bool rates the robot: a number in its place, such as a human rating that forgot its
  // resolve status (kefuId, dialogId, 5, "great"), does not compile.
  template <class Number, class = std::enable_if_t<!std::is_same_v<Number, bool>>>
  void evaluateCustomerService(const KXString& kefuId, const KXString& knownledgeId,
                               Number robotValue, const KXString& suggest) = delete;
  // evaluateCustomerService:dialogId:starValue:suggest:resolveStatus: rates the human agent.
  void evaluateCustomerService(const KXString& kefuId, const KXString& dialogId, int32_t starValue,
                               const KXString& suggest, uint64_t resolveStatus);
  // evaluateCustomerService:dialogId:starValue:suggest:resolveStatus:tagText:extra: rates the
  // human agent with tags; marked as a human rating only while the mode is KXCSModeHuman.
  void evaluateCustomerService(const KXString& kefuId, const KXString& dialogId, int32_t starValue,
                               const KXString& suggest, uint64_t resolveStatus,
                               const KXString& tagText, std::shared_ptr<const KXDictionary> extra);
  // getHumanEvaluateCustomerServiceConfig: stores the callback in the session of kefuId() (the
  // desk started last); dropped when there is none.
  void getHumanEvaluateCustomerServiceConfig(KXEvaConfigBlock evaConfigBlock);

  // leaveMessageCustomerService:leaveMessageDic:success:failure: sends the form's values as the
  // whole body. Exactly one callback is called once, on the host's thread; an empty callback
  // is simply not called.
  void leaveMessageCustomerService(const KXString& kefuId,
                                   std::shared_ptr<const KXDictionary> leaveMessageDic,
                                   KXLeaveMessageSuccessBlock success,
                                   KXLeaveMessageFailureBlock failure);

  KXCustomerServiceClient(const KXCustomerServiceClient&) = delete;
  KXCustomerServiceClient& operator=(const KXCustomerServiceClient&) = delete;

 private:
  KXCustomerServiceClient();
  ~KXCustomerServiceClient() override;
  friend class KXClientState;

  std::unique_ptr<KXClientState> state_;
};

}  // namespace quor
