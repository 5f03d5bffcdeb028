// The host contract run against the loopback host: what an adapter author writes for their own
// host, built in this repository and against the installed test kit.
#include <atomic>
#include <chrono>
#include <mutex>
#include <optional>
#include <thread>

#include "QuorHostContract/QuorHostBaseSubject.h"
#include "QuorHostContract/QuorHostContract.h"
#include "QuorLoopbackHost/QuorLoopbackHost.h"

namespace {

using namespace quor;

// The desk end of the channel: it records what the customer sent.
class DeskPeer : public QuorLoopbackPeer {
 public:
  void onMessageFromClient(const QuorWireMessage& message) override {
    std::lock_guard<std::mutex> lock(mutex_);
    received_.push_back(message.objectName);
  }
  std::vector<std::string> received() {
    std::lock_guard<std::mutex> lock(mutex_);
    return received_;
  }

 private:
  std::mutex mutex_;
  std::vector<std::string> received_;
};

class LoopbackSubject : public contract::QuorHostBaseSubject {
 public:
  // Broken hosts, for the checks that the contract catches them: one that confirms sends with
  // sentTime 0, and one whose clock is an hour slow (its sends are stamped an hour before the
  // desk's messages, which carry the server's time).
  enum class Stamps { Right, Nothing, HourSlow };
  explicit LoopbackSubject(Stamps stamps = Stamps::Right) : stamps_(stamps) {
    host_->connectPeer(peer_);
    adopt(*host_);
    if (broken()) host_->setAutoConfirm(false);
  }
  ~LoopbackSubject() override {
    host_->settle();
    QuorHostBase::uninstall();
  }

  bool runMainUntil(const std::function<bool()>& done) override {
    for (int round = 0; round < 1000; ++round) {
      if (failingCode_ && host_->confirmOldestSend(false, std::nullopt, *failingCode_)) {
        failingCode_.reset();
        host_->setAutoConfirm(!broken());
      }
      while (broken() && !failingCode_ && host_->confirmOldestSend(true, brokenStamp(), 0)) {
      }
      host_->settle();
      if (done()) return true;
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return false;
  }
  void deskSends(const std::string& objectName, const std::string& body) override {
    host_->receiveAsync(wire(objectName, body, false));
  }
  std::vector<std::string> deskReceived() override { return peer_->received(); }
  void deliverWhileOffline(
      const std::vector<std::pair<std::string, std::string>>& messages) override {
    const int before = shown_;
    for (const auto& [name, body] : messages) host_->receiveAsync(wire(name, body, true));
    waitShown(before, messages.size());
  }
  Failure arrangeFailingSend() override {
    host_->setAutoConfirm(false);
    failingCode_ = 7004;
    return {"desk", 7004};
  }

 private:
  bool broken() const { return stamps_ != Stamps::Right; }
  int64_t brokenStamp() const { return stamps_ == Stamps::Nothing ? 0 : serverTime() - 3600000; }
  static int64_t serverTime() {
    return std::chrono::duration_cast<std::chrono::milliseconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
  }

  QuorWireMessage wire(const std::string& objectName, const std::string& body, bool offline) {
    QuorWireMessage message;
    if (stamps_ == Stamps::HourSlow) message.sentTime = serverTime();
    message.objectName = objectName;
    message.targetId = deskId();
    message.senderUserId = deskId();
    message.body = body;
    message.offline = offline;
    return message;
  }

  std::shared_ptr<QuorLoopbackHost> host_ = std::make_shared<QuorLoopbackHost>();
  std::shared_ptr<DeskPeer> peer_ = std::make_shared<DeskPeer>();
  std::optional<int64_t> failingCode_;
  const Stamps stamps_;
};

}  // namespace

using quor::contract::QuorHostContract;  // the macro takes the suite's plain name

std::unique_ptr<quor::contract::QuorHostContractSubject> makeLoopback() {
  return std::make_unique<LoopbackSubject>();
}
INSTANTIATE_TEST_SUITE_P(Loopback, QuorHostContract,
                         ::testing::Values(quor::contract::QuorHostContractFactory{"Loopback",
                                                                                   makeLoopback}),
                         quor::contract::contractName);

// A broken host that confirms its sends with sentTime 0: run only by the checks that expect it
// to fail (the contract must catch it).
std::unique_ptr<quor::contract::QuorHostContractSubject> makeStampsNothing() {
  return std::make_unique<LoopbackSubject>(LoopbackSubject::Stamps::Nothing);
}
std::unique_ptr<quor::contract::QuorHostContractSubject> makeHourSlow() {
  return std::make_unique<LoopbackSubject>(LoopbackSubject::Stamps::HourSlow);
}
INSTANTIATE_TEST_SUITE_P(
    BrokenStamps, QuorHostContract,
    ::testing::Values(quor::contract::QuorHostContractFactory{"StampsNothing", makeStampsNothing},
                      quor::contract::QuorHostContractFactory{"ClockAnHourSlow", makeHourSlow}),
    quor::contract::contractName);
