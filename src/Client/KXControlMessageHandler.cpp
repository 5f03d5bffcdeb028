#include "Client/KXControlMessageHandler.h"

#include "Host/KXCallbackGuard.h"
#include "Host/KXMainThread.h"
#include "Message/KXJsonReader.h"
#include "QuorCustomerService/Host/KXCoreClient.h"
#include "QuorCustomerService/Host/KXHostConstants.h"
#include "QuorCustomerService/Host/KXTextMessage.h"

namespace quor {
namespace {

bool nonEmpty(const KXString& text) { return text && !text->empty(); }

// The five control types, tested in this order.
enum class Control { ChangeModeResponse, Terminate, HandShakeResponse, Update, PullEvaluate, None };

Control controlOf(KXMessageContent* content) {
  if (dynamic_cast<KXCSChangeModeResponseMessage*>(content)) return Control::ChangeModeResponse;
  if (dynamic_cast<KXCSTerminateMessage*>(content)) return Control::Terminate;
  if (dynamic_cast<KXCSHandShakeResponseMessage*>(content)) return Control::HandShakeResponse;
  if (dynamic_cast<KXCSUpdateMessage*>(content)) return Control::Update;
  if (dynamic_cast<KXCSPullEvaluateMessage*>(content)) return Control::PullEvaluate;
  return Control::None;
}

std::shared_ptr<KXCustomerServiceConfig> configurationOf(const KXCSHandShakeResponseMessage& r) {
  auto config = std::make_shared<KXCustomerServiceConfig>();
  config->setCompanyName(r.companyName());
  config->setIsBlack(r.isBlack());
  config->setRobotSessionNoEva(r.robotSessionNoEva());
  config->setHumanSessionNoEva(r.humanSessionNoEva());
  config->setHumanEvaluateItems(r.humanEvaluationItems());
  config->setAdminTipTime(r.adminTipTime());
  config->setAdminTipWord(r.adminTipWord());
  config->setUserTipTime(r.userTipTime());
  config->setUserTipWord(r.userTipWord());
  config->setEvaEntryPoint(r.evaEntryPoint());
  config->setReportResolveStatus(r.reportResolveStatus());
  config->setLeaveMessageWebUrl(r.leaveMessageWebUrl());
  config->setLeaveMessageNativeInfo(r.leaveMessageNativeInfo());
  config->setLeaveMessageType(r.leaveMessageType());
  config->setDisableLocation(r.disableLocation());
  config->setEvaType(r.evaType());
  config->setAnnounceMsg(r.announceMsg());
  config->setAnnounceClickUrl(r.announceClickUrl());
  // companyUrl is the application's own and stays unset.
  return config;
}

KXCSModeType modeOfServiceType(int32_t type) {
  if (type == KXCSServiceTypeRobotOnly) return KXCSModeRobotOnly;
  if (type == KXCSServiceTypeRobotFirst) return KXCSModeRobotFirst;
  return KXCSModeHuman;
}

}  // namespace

bool KXControlMessageHandler::handle(const std::shared_ptr<KXMessage>& message) {
  if (!message || message->conversationType() != KXConversationTypeCustomerService) return false;
  const std::shared_ptr<KXMessageContent>& content = message->content();
  const Control control = controlOf(content.get());

  // Control messages sent before the last confirmed handshake belong to an earlier service.
  const int64_t handShakeTime = state_.handShakeMessageSendTime.load();
  const bool current = handShakeTime != 0 && message->sentTime() >= handShakeTime;
  if (!current && control != Control::None) return true;

  const Session session = state_.sessionFor(message->targetId());
  KXCallbackGuard::run([&] {
    switch (control) {
      case Control::ChangeModeResponse:
        changeModeResponse(message, static_cast<KXCSChangeModeResponseMessage&>(*content), session);
        break;
      case Control::Terminate:
        terminate(*message, static_cast<KXCSTerminateMessage&>(*content), session);
        break;
      case Control::HandShakeResponse:
        handShakeResponse(message, std::static_pointer_cast<KXCSHandShakeResponseMessage>(content),
                          session);
        break;
      case Control::Update:
        update(static_cast<KXCSUpdateMessage&>(*content), session);
        break;
      case Control::PullEvaluate:
        pullEvaluate(static_cast<KXCSPullEvaluateMessage&>(*content), session);
        break;
      case Control::None:
        break;
    }
  });
  return control != Control::None && control != Control::PullEvaluate;
}

void KXControlMessageHandler::handShakeResponse(
    const std::shared_ptr<KXMessage>& message,
    const std::shared_ptr<KXCSHandShakeResponseMessage>& response, const Session& session) {
  if (!session) return;
  const KXCSHandShakeResponseMessage& r = *response;
  if (r.code() == 0) {
    KXMainThread::post([session, response] {
      if (auto onError = session->errorBlock()) {
        onError(response->code(), nonEmpty(response->msg()) ? *response->msg() : "连接客服失败!");
      }
    });
    return;
  }

  auto config = configurationOf(r);
  session->setUid(r.uid());
  session->setCid(r.cid());
  session->setPid(r.pid());
  session->setType(r.type());
  session->setRobotHelloWord(r.robotHelloWord());
  session->setRobotName(r.robotName());
  session->setRobotLogo(r.robotLogo());
  session->setGroupList(r.groupList());
  session->setReportResolveStatus(r.reportResolveStatus() != 0);
  session->setSuspendWhenQuit(r.suspendWhenQuit());
  session->setIsQuited(false);

  if (r.evaConfig()) {
    if (auto onEvaConfig = session->evaConfigBlock()) {
      KXCallbackGuard::run([&] { onEvaConfig(r.evaConfig()); });
    }
  }
  KXMainThread::post([session, config] {
    if (auto onSuccess = session->successBlock()) onSuccess(config);
  });

  if (r.type() != KXCSServiceTypeRobotOnly && r.type() != KXCSServiceTypeRobotFirst) {
    if (r.requiredChangMode()) client_.switchToHumanMode(message->targetId());
  } else {
    showRobotGreeting(*message, r.robotHelloWord(), r.robotName(), r.robotLogo());
  }
  reportMode(session, modeOfServiceType(r.type()));
}

void KXControlMessageHandler::showRobotGreeting(const KXMessage& message, const KXString& helloWord,
                                                const KXString& robotName,
                                                const KXString& robotLogo) {
  if (!nonEmpty(helloWord)) return;
  auto text = KXTextMessage::messageWithContent(helloWord);
  if (nonEmpty(robotName) || nonEmpty(robotLogo)) {
    text->setSenderUserInfo(
        std::make_shared<KXUserInfo>(message.senderUserId(), robotName, robotLogo));
  }
  auto core = KXCoreClient::sharedCoreClient();
  if (!core) return;
  auto record = core->insertIncomingMessage(KXConversationTypeCustomerService, message.targetId(),
                                            message.targetId(), KXReceivedStatusRead, text);
  KXCustomerServiceClient::sharedCustomerServiceClient().onReceiveFakeMessage(std::move(record));
}

void KXControlMessageHandler::changeModeResponse(const std::shared_ptr<KXMessage>& message,
                                                 const KXCSChangeModeResponseMessage& response,
                                                 const Session& session) {
  if (!session) return;
  switch (response.result()) {
    case 1:
    case 4:
      reportMode(session, KXCSModeHuman);
      break;
    case 2: {
      const int32_t type = session->type();
      if (type == KXCSServiceTypeHumanFirst) {
        // No agent: a human-first service falls back to the robot.
        KXMainThread::post([client = &client_, session, message] {
          showRobotGreeting(*message, session->robotHelloWord(), session->robotName(),
                            session->robotLogo());
          session->setType(KXCSServiceTypeRobotFirst);
          reportModeNow(*client, session, KXCSModeRobotFirst);
        });
      } else if (type == KXCSServiceTypeHumanOnly) {
        reportMode(session, KXCSModeNoService);
      }
      break;
    }
    case 3:
      client_.notifyCustomerService(message->targetId(),
                                    response.errMsg() ? response.errMsg() : KXString("你已被拉黑"),
                                    true);
      break;
    default:
      break;
  }

  auto onEvaConfig = session->evaConfigBlock();
  if (!onEvaConfig || !response.evaConfig()) return;
  KXCallbackGuard::run([&] { onEvaConfig(response.evaConfig()); });
  // Each entry's "isQuestionFlag" sets reportResolveStatus: a missing key reads as false, only
  // an explicit null leaves it alone. The last entry that sets it wins.
  const KXDictionary* entries =
      KXJsonReader::array(KXJsonReader::find(response.evaConfig().get(), "evaConfig"));
  if (!entries) return;
  for (const KXDictionary& entry : *entries) {
    const KXDictionary* flag = KXJsonReader::find(&entry, "isQuestionFlag");
    if (flag && flag->is_null()) continue;
    session->setReportResolveStatus(KXJsonReader::boolean(flag));
  }
}

void KXControlMessageHandler::terminate(const KXMessage& message, const KXCSTerminateMessage& end,
                                        const Session& session) {
  if (!session || session->isQuited()) return;
  if (end.cid() && session->cid() != end.cid()) return;  // another conversation's end
  if (nonEmpty(end.msg())) client_.notifyCustomerService(message.targetId(), end.msg(), true);
  if (end.code() == 0) {
    KXMainThread::post([client = &client_, session, text = end.msg(), kefuId = message.targetId()] {
      if (auto onQuit = session->quitBlock()) onQuit(nonEmpty(text) ? *text : "客服会话已结束!");
      client->stopCustomerService(kefuId);
    });
  } else if (end.code() == 1) {
    reportMode(session, KXCSModeRobotFirst);
  }
}

void KXControlMessageHandler::update(const KXCSUpdateMessage& update, const Session& session) {
  if (session && update.cid()) session->setCid(update.cid());
  KXMainThread::post([client = &client_, session, status = update.serviceStatus()] {
    if (!session) return;
    KXCSModeType mode;
    if (status == 2) {
      mode = KXCSModeHuman;
    } else if (status == 1) {
      const int32_t type = session->type();
      const bool humanPossible =
          type == KXCSServiceTypeRobotFirst || type == KXCSServiceTypeHumanFirst;
      mode = humanPossible ? KXCSModeRobotFirst : KXCSModeRobotOnly;
    } else if (status == 3) {
      mode = KXCSModeNoService;
    } else {
      return;
    }
    reportModeNow(*client, session, mode);
  });
}

void KXControlMessageHandler::pullEvaluate(const KXCSPullEvaluateMessage& request,
                                           const Session& session) {
  KXMainThread::post([session, dialogId = request.evaluateId()] {
    if (!session) return;
    if (auto onPullEvaluation = session->pullEvaluationBlock()) onPullEvaluation(dialogId);
  });
}

void KXControlMessageHandler::reportMode(const Session& session, KXCSModeType mode) {
  KXMainThread::post([client = &client_, session, mode] { reportModeNow(*client, session, mode); });
}

void KXControlMessageHandler::reportModeNow(KXCustomerServiceClient& client, const Session& session,
                                            KXCSModeType mode) {
  if (auto onModeType = session->modeTypeBlock()) {
    client.setCurrentCSModeType(mode);
    onModeType(mode);
  }
}

}  // namespace quor
