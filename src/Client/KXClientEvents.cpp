#include "Client/KXClientEvents.h"

#include <utility>

#include "QuorCustomerService/Host/KXFileMessage.h"
#include "QuorCustomerService/Host/KXHostConstants.h"
#include "QuorCustomerService/Host/KXInformationNotificationMessage.h"
#include "QuorCustomerService/Host/KXTextMessage.h"
#include "QuorCustomerService/Message/KXCSPullLeaveMessage.h"

namespace quor {

void KXClientEvents::add(const std::string& deskId, std::weak_ptr<Observer> observer) {
  std::lock_guard<std::mutex> lock(mutex_);
  // Those that are gone leave as others come, so the table never outgrows the live sessions.
  for (auto it = byDesk_.begin(); it != byDesk_.end();) {
    it = it->second.expired() ? byDesk_.erase(it) : std::next(it);
  }
  byDesk_.emplace(deskId, std::move(observer));
}

std::vector<std::shared_ptr<KXClientEvents::Observer>> KXClientEvents::observersOf(
    const KXString& deskId) {
  std::vector<std::shared_ptr<Observer>> found;
  if (!deskId) return found;
  std::lock_guard<std::mutex> lock(mutex_);
  const auto [first, last] = byDesk_.equal_range(*deskId);
  for (auto it = first; it != last; ++it) {
    if (auto observer = it->second.lock()) found.push_back(std::move(observer));
  }
  return found;
}

void KXClientEvents::agentAnswer(const KXString& deskId, int32_t result, int32_t serviceType,
                                 const KXString& text) {
  for (const auto& observer : observersOf(deskId))
    observer->onAgentAnswer(result, serviceType, text);
}

void KXClientEvents::handshakeSent(const KXString& deskId) {
  for (const auto& observer : observersOf(deskId)) observer->onHandshakeSent();
}

void KXClientEvents::conversationMessage(const std::shared_ptr<KXMessage>& message, bool received) {
  if (!message || message->conversationType() != KXConversationTypeCustomerService) return;
  const auto* content = message->content().get();
  if (!dynamic_cast<const KXTextMessage*>(content) &&
      !dynamic_cast<const KXFileMessage*>(content) &&
      !dynamic_cast<const KXInformationNotificationMessage*>(content) &&
      !dynamic_cast<const KXCSPullLeaveMessage*>(content)) {
    return;
  }
  for (const auto& observer : observersOf(message->targetId()))
    observer->onConversationMessage(message, received);
}

void KXClientEvents::conversationRead(const KXString& deskId) {
  for (const auto& observer : observersOf(deskId)) observer->onConversationRead();
}

void KXClientEvents::deskTyping(const KXString& deskId, bool typing) {
  for (const auto& observer : observersOf(deskId)) observer->onDeskTyping(typing);
}

void KXClientEvents::deskRead(const KXString& deskId, int64_t messageId) {
  for (const auto& observer : observersOf(deskId)) observer->onDeskRead(messageId);
}

}  // namespace quor
