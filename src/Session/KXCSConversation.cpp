#include "Session/KXCSConversation.h"

#include "QuorCustomerService/Host/KXFileMessage.h"
#include "QuorCustomerService/Host/KXInformationNotificationMessage.h"
#include "QuorCustomerService/Host/KXTextMessage.h"
#include "QuorCustomerService/Message/KXCSPullLeaveMessage.h"
#include "Session/KXCSFileLines.h"

namespace quor {

KXCSConversationMessage KXCSConversation::received(const KXMessage& message, bool agentServes) {
  KXCSConversationMessage line;
  line.sequence = ++lastSequence_;
  line.author = agentServes ? KXCSMessageAuthor::Agent : KXCSMessageAuthor::Robot;
  const KXMessageContent* content = message.content().get();
  if (const auto* text = dynamic_cast<const KXTextMessage*>(content)) {
    line.text = text->content().value_or("");
  } else if (const auto* file = dynamic_cast<const KXFileMessage*>(content)) {
    line.file = KXCSFileLines::lineFile(*file);
  } else if (const auto* notice = dynamic_cast<const KXInformationNotificationMessage*>(content)) {
    line.author = KXCSMessageAuthor::Notice;
    line.text = notice->message().value_or("");
  } else if (const auto* invitation = dynamic_cast<const KXCSPullLeaveMessage*>(content)) {
    line.author = KXCSMessageAuthor::LeaveMessageInvitation;
    line.text = invitation->content().value_or("");
  }
  if (content && content->senderUserInfo() && content->senderUserInfo()->name()) {
    line.senderName = *content->senderUserInfo()->name();
  }
  line.messageId = message.messageId();
  line.sentTime = message.sentTime();
  ++unread_;
  return line;
}

KXCSConversationMessage KXCSConversation::sending(std::string text) {
  KXCSConversationMessage line;
  line.sequence = ++lastSequence_;
  line.author = KXCSMessageAuthor::Customer;
  line.delivery = KXCSDelivery::Sending;
  line.text = std::move(text);
  return line;
}

}  // namespace quor
