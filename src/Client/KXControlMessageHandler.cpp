#include "Client/KXControlMessageHandler.h"

#include <nlohmann/json.hpp>

#include "Message/KXJsonReader.h"
#include "Message/KXMessageTypeTable.h"
#include "QuorCustomerService/Host/KXHostConstants.h"
#include "QuorCustomerService/Host/KXTextMessage.h"
#include "Support/KXCallbackGuard.h"
#include "Support/KXHost.h"
#include "Support/KXMainThread.h"
#include "Support/KXTexts.h"

namespace quor {
namespace {

bool nonEmpty(const KXString& text) { return text && !text->empty(); }

KXCSModeType modeOfServiceType(int32_t type) {
  if (type == KXCSServiceTypeRobotOnly) return KXCSModeRobotOnly;
  if (type == KXCSServiceTypeRobotFirst) return KXCSModeRobotFirst;
  return KXCSModeHuman;
}

}  // namespace

bool KXControlMessageHandler::handle(const std::shared_ptr<KXMessage>& message) {
  if (!message || message->conversationType() != KXConversationTypeCustomerService) return false;
  const std::shared_ptr<KXMessageContent>& content = message->content();
  const KXMessageTypeTable::Entry* entry = KXMessageTypeTable::controlOf(content.get());
  if (!entry) return false;

  // Control messages sent before the last confirmed handshake belong to an earlier service.
  const int64_t handShakeTime = state_.handShakeMessageSendTime.load();
  const bool current = handShakeTime != 0 && message->sentTime() >= handShakeTime;
  if (!current) return true;

  const Session session = state_.sessionFor(message->targetId());
  // Each callback and host call inside is guarded on its own; this only keeps anything else
  // (memory running out) away from the host's delivery thread.
  KXCallbackGuard::run([&] {
    switch (entry->control) {
      case KXControl::ChangeModeResponse:
        changeModeResponse(message, static_cast<KXCSChangeModeResponseMessage&>(*content), session);
        break;
      case KXControl::Terminate:
        terminate(*message, static_cast<KXCSTerminateMessage&>(*content), session);
        break;
      case KXControl::HandShakeResponse:
        handShakeResponse(message, std::static_pointer_cast<KXCSHandShakeResponseMessage>(content),
                          session);
        break;
      case KXControl::Update:
        update(static_cast<KXCSUpdateMessage&>(*content), session);
        break;
      case KXControl::PullEvaluate:
        pullEvaluate(static_cast<KXCSPullEvaluateMessage&>(*content), session);
        break;
      case KXControl::None:
        break;
    }
  });
  return entry->consumed;
}

void KXControlMessageHandler::handShakeResponse(
    const std::shared_ptr<KXMessage>& message,
    const std::shared_ptr<KXCSHandShakeResponseMessage>& response, const Session& session) {
  if (!session) return;
  const KXCSHandShakeResponseMessage& r = *response;
  if (r.code() == KXCSHandShakeRefused) {
    KXMainThread::post([session, response] {
      KXCallbackGuard::call(session->errorBlock(), response->code(),
                            nonEmpty(response->msg()) ? *response->msg() : KXTexts::kConnectFailed);
    });
    return;
  }

  auto config = std::make_shared<KXCustomerServiceConfig>(r.configuration());
  session->updateFromHandShakeResponse(r);

  if (r.evaConfig()) KXCallbackGuard::call(session->evaConfigBlock(), r.evaConfig());
  KXMainThread::post([session, config] { KXCallbackGuard::call(session->successBlock(), config); });

  if (r.type() != KXCSServiceTypeRobotOnly && r.type() != KXCSServiceTypeRobotFirst) {
    if (r.requiredChangMode()) client_.switchToHumanMode(message->targetId());
  } else {
    showRobotGreeting(client_, *message, r.robotHelloWord(), r.robotName(), r.robotLogo());
  }
  reportMode(session, modeOfServiceType(r.type()));
}

void KXControlMessageHandler::showRobotGreeting(KXCustomerServiceClient& client,
                                                const KXMessage& message, const KXString& helloWord,
                                                const KXString& robotName,
                                                const KXString& robotLogo) {
  if (!nonEmpty(helloWord)) return;
  auto text = KXTextMessage::messageWithContent(helloWord);
  if (nonEmpty(robotName) || nonEmpty(robotLogo)) {
    text->setSenderUserInfo(
        std::make_shared<KXUserInfo>(message.senderUserId(), robotName, robotLogo));
  }
  client.onReceiveFakeMessage(KXHost::insertIncoming(message.targetId(), std::move(text)));
}

void KXControlMessageHandler::changeModeResponse(const std::shared_ptr<KXMessage>& message,
                                                 const KXCSChangeModeResponseMessage& response,
                                                 const Session& session) {
  if (!session) return;
  state_.events.agentAnswer(message->targetId(), response.result(), session->type(),
                            response.errMsg());
  switch (response.result()) {
    case KXCSChangeModeAgentServes:
    case KXCSChangeModeAlreadyWithAgent:
      reportMode(session, KXCSModeHuman);
      break;
    case KXCSChangeModeNoAgent: {
      const int32_t type = session->type();
      if (type == KXCSServiceTypeHumanFirst) {
        // No agent: a human-first service falls back to the robot.
        KXMainThread::post([client = &client_, session, message] {
          showRobotGreeting(*client, *message, session->robotHelloWord(), session->robotName(),
                            session->robotLogo());
          session->setType(KXCSServiceTypeRobotFirst);
          reportModeNow(*client, session, KXCSModeRobotFirst);
        });
      } else if (type == KXCSServiceTypeHumanOnly) {
        reportMode(session, KXCSModeNoService);
      }
      break;
    }
    case KXCSChangeModeRefused:
      client_.notifyCustomerService(
          message->targetId(), response.errMsg() ? response.errMsg() : KXString(KXTexts::kBlocked),
          true);
      break;
    default:
      break;
  }

  auto onEvaConfig = session->evaConfigBlock();
  if (!onEvaConfig || !response.evaConfig()) return;
  KXCallbackGuard::call(onEvaConfig, response.evaConfig());
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
  if (end.code() == KXCSTerminateEndService) {
    KXMainThread::post([client = &client_, session, text = end.msg(), kefuId = message.targetId()] {
      // The stop follows in every case, also when the quit callback throws.
      KXCallbackGuard::call(session->quitBlock(), nonEmpty(text) ? *text : KXTexts::kServiceEnded);
      client->stopCustomerService(kefuId);
    });
  } else if (end.code() == KXCSTerminateBackToRobot) {
    reportMode(session, KXCSModeRobotFirst);
  }
}

void KXControlMessageHandler::update(const KXCSUpdateMessage& update, const Session& session) {
  if (session && update.cid()) session->setCid(update.cid());
  KXMainThread::post([client = &client_, session, status = update.serviceStatus()] {
    if (!session) return;
    KXCSModeType mode;
    if (status == KXCSUpdateAgentServes) {
      mode = KXCSModeHuman;
    } else if (status == KXCSUpdateRobotServes) {
      const int32_t type = session->type();
      const bool humanPossible =
          type == KXCSServiceTypeRobotFirst || type == KXCSServiceTypeHumanFirst;
      mode = humanPossible ? KXCSModeRobotFirst : KXCSModeRobotOnly;
    } else if (status == KXCSUpdateClosed) {
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
    KXCallbackGuard::call(session->pullEvaluationBlock(), dialogId);
  });
}

void KXControlMessageHandler::reportMode(const Session& session, KXCSModeType mode) {
  KXMainThread::post([client = &client_, session, mode] { reportModeNow(*client, session, mode); });
}

void KXControlMessageHandler::reportModeNow(KXCustomerServiceClient& client, const Session& session,
                                            KXCSModeType mode) {
  if (auto onModeType = session->modeTypeBlock()) {
    client.setCurrentCSModeType(mode);
    KXCallbackGuard::call(onModeType, mode);
  }
}

}  // namespace quor
