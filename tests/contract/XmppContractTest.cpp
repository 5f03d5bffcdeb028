// The host contract run against the XMPP host, on a private Prosody server per test.
#include <atomic>
#include <chrono>
#include <mutex>

#include "QuorHostContract/QuorHostBaseSubject.h"
#include "QuorPrivateServer/QuorPrivateServer.h"
#include "QuorXmppHost/QuorXmppErrors.h"
#include "QuorXmppHost/QuorXmppHost.h"

namespace quor::contract {
namespace {

constexpr auto kPatience = std::chrono::seconds(10);

// The desk: a bare connection that records the customer's payloads.
class DeskEnd : public QuorXmppConnection::Events {
 public:
  void onStatus(QuorXmppConnectionStatus) override {}
  void onPayload(QuorXmppPayload payload) override {
    std::lock_guard<std::mutex> lock(mutex);
    received.push_back(payload.objectName);
  }
  void onLog(int32_t, const std::string&, const std::string&) override {}
  std::mutex mutex;
  std::vector<std::string> received;
};

class XmppSubject : public QuorHostBaseSubject {
 public:
  XmppSubject() {
    QuorPrivateServer::Options options;
    options.accounts = {{"alice", "pw"}, {"desk", "pw"}};
    std::string error;
    server_ = QuorPrivateServer::start(options, &error);
    if (!server_) throw std::runtime_error(error);
    desk_ = std::make_unique<QuorXmppConnection>(account("desk"), deskEnd_);
    desk_->start();
    QuorXmppHost::Options hostOptions;
    hostOptions.connection = account("alice");
    host_ = QuorXmppHost::create(hostOptions, &error);
    adopt(*host_);
    host_->connect();
    if (!host_->waitUntilOnline(kPatience) || !desk_->waitUntilOnline(kPatience)) {
      throw std::runtime_error("not online");
    }
  }
  ~XmppSubject() override {
    host_->logout();
    QuorHostBase::uninstall();
    host_.reset();
    desk_.reset();
  }

  bool runMainUntil(const std::function<bool()>& done) override {
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    for (;;) {
      host_->mainRunLoop().runUntilIdle();
      if (done()) return true;
      if (std::chrono::steady_clock::now() >= deadline) return false;
      host_->mainRunLoop().runOnce(std::chrono::milliseconds(5));
    }
  }
  void deskSends(const std::string& objectName, const std::string& body) override {
    sendFromDesk(objectName, body, nullptr);
  }
  std::vector<std::string> deskReceived() override {
    std::lock_guard<std::mutex> lock(deskEnd_.mutex);
    return deskEnd_.received;
  }
  void deliverWhileOffline(
      const std::vector<std::pair<std::string, std::string>>& messages) override {
    host_->logout();
    std::atomic<std::size_t> stored{0};
    for (const auto& [name, body] : messages) {
      sendFromDesk(name, body, [&](int64_t, int64_t) { ++stored; });
    }
    runMainUntil([&] { return stored == messages.size(); });
    const int before = shown_;
    host_->connect();
    waitShown(before, messages.size());
  }
  Failure arrangeFailingSend() override { return {"nobody-here", QuorXmppErrorNoSuchRecipient}; }

 private:
  QuorXmppOptions account(const std::string& user) const { return server_->account(user, "pw"); }
  void sendFromDesk(const std::string& objectName, const std::string& body,
                    QuorXmppConnection::Outcome outcome) {
    QuorXmppPayload payload;
    payload.peer = server_->jid("alice");
    payload.objectName = objectName;
    payload.body = body;
    desk_->send(std::move(payload), std::move(outcome));
  }

  std::unique_ptr<QuorPrivateServer> server_;
  DeskEnd deskEnd_;
  std::unique_ptr<QuorXmppConnection> desk_;
  std::shared_ptr<QuorXmppHost> host_;
};

std::unique_ptr<QuorHostContractSubject> makeXmpp() { return std::make_unique<XmppSubject>(); }

INSTANTIATE_TEST_SUITE_P(Xmpp, QuorHostContract,
                         ::testing::Values(QuorHostContractFactory{"Xmpp", makeXmpp}),
                         contractName);

}  // namespace
}  // namespace quor::contract
