#include "Client/KXSessionHook.h"

#include <map>
#include <mutex>
#include <utility>
#include <vector>

#include "QuorCustomerService/Host/KXHostConstants.h"
#include "QuorCustomerService/Host/KXInformationNotificationMessage.h"
#include "QuorCustomerService/Host/KXTextMessage.h"
#include "QuorCustomerService/Message/KXCSPullLeaveMessage.h"

namespace quor {
namespace {

struct Listeners {
  std::mutex mutex;
  std::map<std::pair<std::string, const void*>, KXSessionHook::Listener> byDeskAndOwner;
};

Listeners& listeners() {
  static Listeners* shared = new Listeners();  // never destroyed: used until the process ends
  return *shared;
}

// The listeners of `deskId`, copied so that they run without the lock.
std::vector<KXSessionHook::Listener> listenersOf(const KXString& deskId) {
  std::vector<KXSessionHook::Listener> found;
  if (!deskId) return found;
  auto& all = listeners();
  std::lock_guard<std::mutex> lock(all.mutex);
  for (auto it = all.byDeskAndOwner.lower_bound({*deskId, nullptr});
       it != all.byDeskAndOwner.end() && it->first.first == *deskId; ++it) {
    found.push_back(it->second);
  }
  return found;
}

}  // namespace

void KXSessionHook::listen(const std::string& deskId, const void* owner, Listener listener) {
  auto& all = listeners();
  std::lock_guard<std::mutex> lock(all.mutex);
  all.byDeskAndOwner[{deskId, owner}] = std::move(listener);
}

void KXSessionHook::forget(const std::string& deskId, const void* owner) {
  auto& all = listeners();
  std::lock_guard<std::mutex> lock(all.mutex);
  all.byDeskAndOwner.erase({deskId, owner});
}

void KXSessionHook::agentAnswer(const KXString& deskId, int32_t result, int32_t serviceType,
                                const KXString& text) {
  for (const auto& listener : listenersOf(deskId)) {
    if (listener.agentAnswer) listener.agentAnswer(result, serviceType, text);
  }
}

void KXSessionHook::handshakeSent(const KXString& deskId) {
  for (const auto& listener : listenersOf(deskId)) {
    if (listener.handshakeSent) listener.handshakeSent();
  }
}

void KXSessionHook::conversationMessage(const std::shared_ptr<KXMessage>& message) {
  if (!message || message->conversationType() != KXConversationTypeCustomerService) return;
  const auto* content = message->content().get();
  if (!dynamic_cast<const KXTextMessage*>(content) &&
      !dynamic_cast<const KXInformationNotificationMessage*>(content) &&
      !dynamic_cast<const KXCSPullLeaveMessage*>(content)) {
    return;
  }
  for (const auto& listener : listenersOf(message->targetId())) {
    if (listener.conversationMessage) listener.conversationMessage(message);
  }
}

}  // namespace quor
