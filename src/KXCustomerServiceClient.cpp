#include "QuorCustomerService/KXCustomerServiceClient.h"

#include <nlohmann/json.hpp>

#include "Client/KXClientState.h"
#include "Client/KXControlMessageHandler.h"
#include "QuorCustomerService/Host/KXHostConstants.h"
#include "QuorCustomerService/Host/KXInformationNotificationMessage.h"
#include "QuorCustomerService/Message/KXCSChangeModeMessage.h"
#include "QuorCustomerService/Message/KXCSEvaluateMessage.h"
#include "QuorCustomerService/Message/KXCSHandShakeMessage.h"
#include "QuorCustomerService/Message/KXCSLeaveMessage.h"
#include "QuorCustomerService/Message/KXCSSuspendMessage.h"
#include "Support/KXCallbackGuard.h"
#include "Support/KXHost.h"
#include "Support/KXMainThread.h"
#include "Support/KXSendOutcome.h"
#include "Support/KXTexts.h"

namespace quor {
namespace {

// The identifiers of an evaluation: the caller's knowledge or dialog id alone when present
// (an empty one too), else the session's three.
void setEvaluationIdentifiers(KXCSEvaluateMessage& message, const KXString& ratedId,
                              const std::shared_ptr<KXCustomerServiceSession>& session) {
  if (ratedId) {
    message.setCid(ratedId);
  } else if (session) {
    message.setIdentifiers(session->identifiers());
  }
}

// The resolve status of a human evaluation: the caller's value (its low 32 bits) when the desk
// asks whether the problem was resolved, else -1.
int32_t resolveStatusOf(uint64_t resolveStatus,
                        const std::shared_ptr<KXCustomerServiceSession>& session) {
  if (!session || !session->reportResolveStatus()) return -1;
  return static_cast<int32_t>(static_cast<uint32_t>(resolveStatus));
}

}  // namespace

KXCustomerServiceClient& KXCustomerServiceClient::sharedCustomerServiceClient() {
  // Made once, also under concurrent first calls, and never destroyed: closures posted to the
  // main thread may still refer to it while the process exits.
  static KXCustomerServiceClient* client = new KXCustomerServiceClient();
  return *client;
}

KXCustomerServiceClient::KXCustomerServiceClient() : state_(std::make_unique<KXClientState>()) {}
KXCustomerServiceClient::~KXCustomerServiceClient() = default;

KXString KXCustomerServiceClient::kefuId() const { return state_->kefuId(); }
void KXCustomerServiceClient::setKefuId(KXString kefuId) { state_->setKefuId(std::move(kefuId)); }

KXCSModeType KXCustomerServiceClient::currentCSModeType() const {
  return static_cast<KXCSModeType>(state_->mode.load());
}
void KXCustomerServiceClient::setCurrentCSModeType(KXCSModeType mode) { state_->mode.store(mode); }

KXCustomerServiceClient::SessionMap KXCustomerServiceClient::customerServiceSessions() const {
  return state_->sessions();
}
void KXCustomerServiceClient::setCustomerServiceSessions(SessionMap sessions) {
  state_->setSessions(std::move(sessions));
}

int64_t KXCustomerServiceClient::handShakeMessageSendTime() const {
  return state_->handShakeMessageSendTime.load();
}
void KXCustomerServiceClient::setHandShakeMessageSendTime(int64_t sentTime) {
  state_->handShakeMessageSendTime.store(sentTime);
}

void KXCustomerServiceClient::startCustomerService(
    const KXString& kefuId, std::shared_ptr<KXCustomerServiceInfo> info, KXSuccessBlock onSuccess,
    KXErrorBlock onError, KXModeTypeBlock onModeType, KXPullEvaluationBlock onPullEvaluation,
    KXSelectGroupBlock onSelectGroup, KXQuitBlock onQuit) {
  setKefuId(kefuId);
  setCurrentCSModeType(KXCSModeNoService);
  if (auto session = state_->sessionMadeFor(kefuId)) {
    session->setSuccessBlock(std::move(onSuccess));
    session->setErrorBlock(onError);
    session->setModeTypeBlock(std::move(onModeType));
    session->setPullEvaluationBlock(std::move(onPullEvaluation));
    session->setQuitBlock(std::move(onQuit));
    session->setSelectGroupBlock(std::move(onSelectGroup));
  }

  auto handShake = std::make_shared<KXCSHandShakeMessage>();
  handShake->setInfo(std::move(info));
  // Only the host's first report of this send counts, however often it reports.
  const KXSendOutcome outcome;
  KXHost::sendReportingRecords(
      kefuId, std::move(handShake), outcome.once([this, kefuId](std::shared_ptr<KXMessage> sent) {
        if (sent) setHandShakeMessageSendTime(sent->sentTime());
        state_->events.handshakeSent(kefuId);
      }),
      // The failure reports to the error callback of this start, not the session's current one,
      // and stops the service even when that callback throws.
      outcome.once([this, onError, kefuId](int64_t errorCode, std::shared_ptr<KXMessage>) {
        KXMainThread::post([this, onError, kefuId, errorCode] {
          KXCallbackGuard::call(onError, errorCode, KXTexts::kConnectFailed);
          stopCustomerService(kefuId);
        });
      }));
}

void KXCustomerServiceClient::stopCustomerService(const KXString& kefuId) {
  auto session = state_->sessionFor(kefuId);
  if (session && session->suspendWhenQuit()) {
    auto suspend = std::make_shared<KXCSSuspendMessage>();
    suspend->setIdentifiers(session->identifiers());
    KXHost::send(kefuId, std::move(suspend));
  }
  setKefuId(std::nullopt);
  if (!session) return;
  session->setSuccessBlock(nullptr);
  session->setErrorBlock(nullptr);
  session->setModeTypeBlock(nullptr);
  session->setPullEvaluationBlock(nullptr);
  session->setQuitBlock(nullptr);
  session->setIsQuited(true);
  session->setSelectGroupBlock(nullptr);
  session->setEvaConfigBlock(nullptr);
}

bool KXCustomerServiceClient::onCustomerServiceMessageReceived(
    const std::shared_ptr<KXMessage>& message) {
  return KXControlMessageHandler(*this, *state_).handle(message);
}

void KXCustomerServiceClient::notifyCustomerService(const KXString& kefuId, const KXString& warning,
                                                    bool saveToDB) {
  auto notice = KXInformationNotificationMessage::notificationWithMessage(warning, std::nullopt);
  std::shared_ptr<KXMessage> record;
  if (saveToDB) {
    // Deliberately inverted: "save" delivers an in-memory record and stores nothing.
    record = std::make_shared<KXMessage>(KXConversationTypeCustomerService, kefuId,
                                         KXMessageDirectionReceive, 0, std::move(notice));
    record->setReceivedStatus(KXReceivedStatusRead);
  } else {
    record = KXHost::insertIncoming(kefuId, std::move(notice));
  }
  onReceiveFakeMessage(std::move(record));
}

void KXCustomerServiceClient::onReceiveFakeMessage(std::shared_ptr<KXMessage> message) {
  state_->events.conversationMessage(message, false);
  KXHost::receiveFake(std::move(message));
}

void KXCustomerServiceClient::switchToHumanMode(const KXString& kefuId) {
  if (state_->choosesGroupFirst(kefuId)) {
    // The user chooses a group first; the callback gets the list as it stands then.
    auto session = state_->sessionFor(kefuId);
    KXMainThread::post(
        [session] { KXCallbackGuard::call(session->selectGroupBlock(), session->groupList()); });
    return;
  }
  sendChangeModelMessage(kefuId, std::nullopt);
}

void KXCustomerServiceClient::selectCustomerServiceGroup(const KXString& kefuId,
                                                         const KXString& groupId) {
  sendChangeModelMessage(kefuId, groupId);
}

void KXCustomerServiceClient::sendChangeModelMessage(const KXString& kefuId,
                                                     const KXString& groupId) {
  auto session = state_->sessionFor(kefuId);
  auto changeMode = std::make_shared<KXCSChangeModeMessage>();
  if (session) changeMode->setIdentifiers(session->identifiers());
  changeMode->setGroupid(groupId);
  KXHost::send(kefuId, std::move(changeMode));
}

void KXCustomerServiceClient::evaluateCustomerService(const KXString& kefuId,
                                                      const KXString& knownledgeId, bool robotValue,
                                                      const KXString& suggest) {
  auto session = state_->sessionFor(kefuId);
  auto evaluation = std::make_shared<KXCSEvaluateMessage>();
  setEvaluationIdentifiers(*evaluation, knownledgeId, session);
  evaluation->setResolveStatus(robotValue ? 1 : 0);
  evaluation->setSuggest(suggest);
  evaluation->setType(KXCSEvaluationRobot);
  KXHost::send(kefuId, std::move(evaluation));
}

void KXCustomerServiceClient::evaluateCustomerService(const KXString& kefuId,
                                                      const KXString& dialogId, int32_t starValue,
                                                      const KXString& suggest,
                                                      uint64_t resolveStatus) {
  auto session = state_->sessionFor(kefuId);
  auto evaluation = std::make_shared<KXCSEvaluateMessage>();
  setEvaluationIdentifiers(*evaluation, dialogId, session);
  evaluation->setSource(starValue);
  evaluation->setSuggest(suggest);
  evaluation->setType(KXCSEvaluationAgent);
  evaluation->setResolveStatus(resolveStatusOf(resolveStatus, session));
  KXHost::send(kefuId, std::move(evaluation));
}

void KXCustomerServiceClient::evaluateCustomerService(
    const KXString& kefuId, const KXString& dialogId, int32_t starValue, const KXString& suggest,
    uint64_t resolveStatus, const KXString& tagText, std::shared_ptr<const KXDictionary> extra) {
  auto session = state_->sessionFor(kefuId);
  auto evaluation = std::make_shared<KXCSEvaluateMessage>();
  setEvaluationIdentifiers(*evaluation, dialogId, session);
  // Marked as a human rating only while talking to a human agent.
  if (currentCSModeType() == KXCSModeHuman) evaluation->setType(KXCSEvaluationAgent);
  evaluation->setSource(starValue);
  evaluation->setSuggest(suggest);
  evaluation->setResolveStatus(resolveStatusOf(resolveStatus, session));
  evaluation->setTagText(tagText);
  evaluation->setExtra(std::move(extra));
  KXHost::send(kefuId, std::move(evaluation));
}

void KXCustomerServiceClient::getHumanEvaluateCustomerServiceConfig(
    KXEvaConfigBlock evaConfigBlock) {
  if (auto session = state_->sessionFor(kefuId())) {
    session->setEvaConfigBlock(std::move(evaConfigBlock));
  }
}

void KXCustomerServiceClient::leaveMessageCustomerService(
    const KXString& kefuId, std::shared_ptr<const KXDictionary> leaveMessageDic,
    KXLeaveMessageSuccessBlock success, KXLeaveMessageFailureBlock failure) {
  auto leave = std::make_shared<KXCSLeaveMessage>();
  leave->setLeaveMessageDic(std::move(leaveMessageDic));
  // Exactly one of the two callbacks, once, however often the host reports.
  const KXSendOutcome outcome;
  KXHost::send(kefuId, std::move(leave), outcome.once([success](int64_t messageId) {
    KXCallbackGuard::call(success, messageId);
  }),
               outcome.once([failure](int64_t errorCode, int64_t messageId) {
                 KXCallbackGuard::call(failure, errorCode, messageId);
               }));
}

}  // namespace quor
