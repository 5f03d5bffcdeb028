#include "QuorCustomerService/Session/KXCSServiceObserver.h"

namespace quor {

// An observer overrides what it needs; the rest does nothing.
KXCSServiceObserver::~KXCSServiceObserver() = default;
void KXCSServiceObserver::onStateChanged(const KXCSServiceStatus&) {}
void KXCSServiceObserver::onRatingRequested(const KXString&) {}
void KXCSServiceObserver::onEvaluationSettings(const KXDictionary&) {}
void KXCSServiceObserver::onMessageLeft(bool, int64_t) {}
void KXCSServiceObserver::onMessage(const KXCSConversationMessage&) {}
void KXCSServiceObserver::onMessageDelivery(const KXCSConversationMessage&) {}
void KXCSServiceObserver::onUnreadCountChanged(uint64_t) {}
void KXCSServiceObserver::onDeskTyping(bool) {}
void KXCSServiceObserver::onFileProgress(uint64_t, uint64_t, uint64_t) {}
void KXCSServiceObserver::onFileDownloaded(uint64_t, const KXCSFile&, int64_t) {}

}  // namespace quor
