#include "QuorReplayTrace.h"

#include <nlohmann/json.hpp>

#include "KXJsonTree.h"

namespace quor {
namespace {

const char* closuresName(QuorSendClosures closures) {
  switch (closures) {
    case QuorSendClosures::Ids:
      return "ids";
    case QuorSendClosures::Records:
      return "records";
    case QuorSendClosures::None:
      break;
  }
  return "none";
}

template <class List, class Describe>
KXDictionary listOf(const List& list, Describe describe) {
  if (!list) return nullptr;
  KXDictionary items = KXDictionary::array();
  for (const auto& item : *list) items.push_back(describe(*item));
  return items;
}

}  // namespace

void QuorReplayTrace::event(const KXDictionary& line) {
  const std::string text = line.dump(-1, ' ', false, KXDictionary::error_handler_t::replace);
  std::lock_guard<std::mutex> lock(mutex_);
  std::fprintf(out_, "%s\n", text.c_str());
  std::fflush(out_);
}

KXDictionary QuorReplayTrace::text(const KXString& value) {
  return value ? KXDictionary(*value) : KXDictionary();
}

KXDictionary QuorReplayTrace::content(const std::shared_ptr<KXMessageContent>& content) {
  if (!content) return nullptr;
  KXDictionary described = {{"objectName", content->objectName()}};
  if (auto* textMessage = dynamic_cast<KXTextMessage*>(content.get())) {
    described["content"] = text(textMessage->content());
    const auto& sender = textMessage->senderUserInfo();
    described["senderUserInfo"] = sender ? KXDictionary{{"userId", text(sender->userId())},
                                                        {"name", text(sender->name())},
                                                        {"portrait", text(sender->portraitUri())}}
                                         : KXDictionary();
  } else if (auto* notice = dynamic_cast<KXInformationNotificationMessage*>(content.get())) {
    described["message"] = text(notice->message());
    described["extra"] = text(notice->extra());
  }
  return described;
}

KXDictionary QuorReplayTrace::groups(const KXCustomerServiceGroupList& groups) {
  return listOf(groups, [](const KXCustomerServiceGroupItem& group) {
    return KXDictionary{{"groupId", text(group.groupId())},
                        {"name", text(group.name())},
                        {"online", group.online()}};
  });
}

KXDictionary QuorReplayTrace::configuration(const KXCustomerServiceConfig& c) {
  return {
      {"isBlack", c.isBlack()},
      {"companyName", text(c.companyName())},
      {"companyUrl", text(c.companyUrl())},
      {"robotSessionNoEva", c.robotSessionNoEva()},
      {"humanSessionNoEva", c.humanSessionNoEva()},
      {"humanEvaluateItems",
       listOf(c.humanEvaluateItems(),
              [](const KXEvaluateItem& item) {
                return KXDictionary{{"describe", text(item.describe())}, {"value", item.value()}};
              })},
      {"adminTipTime", c.adminTipTime()},
      {"adminTipWord", text(c.adminTipWord())},
      {"userTipTime", c.userTipTime()},
      {"userTipWord", text(c.userTipWord())},
      {"evaEntryPoint", c.evaEntryPoint()},
      {"evaType", c.evaType()},
      {"reportResolveStatus", c.reportResolveStatus()},
      {"leaveMessageType", c.leaveMessageType()},
      {"disableLocation", c.disableLocation()},
      {"leaveMessageWebUrl", text(c.leaveMessageWebUrl())},
      {"leaveMessageNativeInfo",
       listOf(c.leaveMessageNativeInfo(),
              [](const KXCSLeaveMessageItem& item) {
                return KXDictionary{{"title", text(item.title())},
                                    {"name", text(item.name())},
                                    {"type", text(item.type())},
                                    {"defaultText", text(item.defaultText())},
                                    {"required", item.required()},
                                    {"verification", text(item.verification())},
                                    {"message", item.message() ? *item.message() : KXDictionary()},
                                    {"max", item.max()}};
              })},
      {"announceMsg", text(c.announceMsg())},
      {"announceClickUrl", text(c.announceClickUrl())},
  };
}

void QuorReplayTrace::onRegister(const KXMessageContentType& type) {
  event({{"ev", "register"},
         {"objectName", type.objectName()},
         {"persistentFlag", type.persistentFlag()}});
}

void QuorReplayTrace::onSend(const QuorOutgoingSend& send) {
  KXDictionary body = nullptr;
  if (send.body) {
    body = KXJsonTree::parse(*send.body, KXJsonTree::kMaxDepth).value_or(KXDictionary(*send.body));
  }
  event({{"ev", "send"},
         {"thread", send.thread},
         {"conversationType", send.conversationType},
         {"targetId", text(send.targetId)},
         {"objectName", send.objectName},
         {"body", body},
         {"closures", closuresName(send.closures)},
         {"pushContent", text(send.pushContent)},
         {"pushData", text(send.pushData)},
         {"messageId", send.record->messageId()},
         {"sentTime", send.record->sentTime()}});
}

void QuorReplayTrace::onInsert(const std::shared_ptr<KXMessage>& record,
                               const std::string& thread) {
  event({{"ev", "insert"},
         {"thread", thread},
         {"conversationType", record->conversationType()},
         {"targetId", text(record->targetId())},
         {"senderUserId", text(record->senderUserId())},
         {"receivedStatus", record->receivedStatus()},
         {"content", content(record->content())}});
}

void QuorReplayTrace::onFakeReceive(const std::shared_ptr<KXMessage>& message,
                                    const std::string& thread) {
  KXDictionary described = nullptr;
  if (message) {
    described = {{"conversationType", message->conversationType()},
                 {"targetId", text(message->targetId())},
                 {"direction", message->messageDirection()},
                 {"messageId", message->messageId()},
                 {"receivedStatus", message->receivedStatus()},
                 {"content", content(message->content())}};
  }
  event({{"ev", "fakeReceive"}, {"thread", thread}, {"message", described}});
}

void QuorReplayTrace::onLog(const QuorLogEntry& entry) {
  event({{"ev", "log"},
         {"level", entry.level},
         {"type", entry.type},
         {"tag", entry.tag},
         {"text", entry.text}});
}

}  // namespace quor
