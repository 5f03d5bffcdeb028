// The client's state: the session table and the desk started last under one small lock, the
// mode and the handshake time as atomics.
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>

#include "Client/KXClientEvents.h"
#include "QuorCustomerService/KXCustomerServiceClient.h"

namespace quor {

class KXClientState {
 public:
  // The state of `client`, for the library's other layers.
  static KXClientState& of(KXCustomerServiceClient& client) { return *client.state_; }

  // The session of a desk, or null (also for an absent desk id).
  std::shared_ptr<KXCustomerServiceSession> sessionFor(const KXString& kefuId) const {
    if (!kefuId) return nullptr;
    std::lock_guard<std::mutex> lock(mutex_);
    const auto it = sessions_.find(*kefuId);
    return it == sessions_.end() ? nullptr : it->second;
  }

  // The session of a desk, made empty on first use; null for an absent desk id.
  std::shared_ptr<KXCustomerServiceSession> sessionMadeFor(const KXString& kefuId) {
    if (!kefuId) return nullptr;
    std::lock_guard<std::mutex> lock(mutex_);
    auto& session = sessions_[*kefuId];
    if (!session) session = std::make_shared<KXCustomerServiceSession>();
    return session;
  }

  // Whether an agent request of the desk's service asks the app to choose a group first: the
  // desk offered groups.
  bool choosesGroupFirst(const KXString& kefuId) const {
    const auto session = sessionFor(kefuId);
    const auto groups = session ? session->groupList() : nullptr;
    return groups && !groups->empty();
  }

  KXString kefuId() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return kefuId_;
  }
  void setKefuId(KXString kefuId) {
    std::lock_guard<std::mutex> lock(mutex_);
    kefuId_.swap(kefuId);
  }

  KXCustomerServiceClient::SessionMap sessions() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return sessions_;
  }
  void setSessions(KXCustomerServiceClient::SessionMap sessions) {
    std::lock_guard<std::mutex> lock(mutex_);
    sessions_.swap(sessions);
  }

  std::atomic<uint64_t> mode{KXCSModeNoService};
  std::atomic<int64_t> handShakeMessageSendTime{0};
  KXClientEvents events;

 private:
  mutable std::mutex mutex_;
  KXCustomerServiceClient::SessionMap sessions_;
  KXString kefuId_;
};

}  // namespace quor
