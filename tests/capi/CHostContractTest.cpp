// The host contract run against a host written in C (c_core.c), through the C layer: installed
// with quor_cs_host_install(), fed by quor_cs_host_receive(), its sends completed with
// quor_cs_send_succeeded() and quor_cs_send_failed().
#include <chrono>
#include <mutex>
#include <thread>

#include "QuorCApi.h"
#include "QuorHostBase/QuorHostBase.h"
#include "QuorHostContract/QuorHostContract.h"
#include "c_core.h"

namespace quor::contract {
namespace {

class CHostSubject : public QuorHostContractSubject {
 public:
  CHostSubject() {
    core_ = c_core_create("desk", &CHostSubject::deskGot, this);
    if (!core_) throw std::runtime_error("the C core did not install");
    base().setLogSink(nullptr, 0);
    base().addMessageListener([this](const std::shared_ptr<KXMessage>&) { ++shown_; });
  }
  ~CHostSubject() override { c_core_destroy(core_); }

  KXCoreClient& core() override { return base(); }
  KXMainThreadDispatcher& mainThread() override { return base(); }
  void loadModule(QuorIMLibExtensionModule& module) override { base().loadExtensionModule(module); }
  void addListener(std::function<void(const std::shared_ptr<KXMessage>&)> listener) override {
    base().addMessageListener(std::move(listener));
  }
  std::string deskId() const override { return "desk"; }

  bool runMainUntil(const std::function<bool()>& done) override {
    for (int round = 0; round < 2000; ++round) {
      c_core_pump(core_);
      if (done()) return true;
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return false;
  }
  void deskSends(const std::string& objectName, const std::string& body) override {
    c_core_desk_sends(core_, objectName.c_str(), body.c_str());
  }
  std::vector<std::string> deskReceived() override {
    std::lock_guard<std::mutex> lock(mutex_);
    return received_;
  }
  void deliverWhileOffline(
      const std::vector<std::pair<std::string, std::string>>& messages) override {
    const int before = shown_;
    c_core_set_online(core_, 0);
    for (const auto& [name, body] : messages) deskSends(name, body);
    c_core_set_online(core_, 1);
    runMainUntil([&] { return shown_ >= before + static_cast<int>(messages.size()); });
  }
  Failure arrangeFailingSend() override {
    c_core_fail_next_send(core_, 7004);
    return {"desk", 7004};
  }

 private:
  static void deskGot(void* user, c_core*, const char* objectName, const char*) {
    auto* self = static_cast<CHostSubject*>(user);
    std::lock_guard<std::mutex> lock(self->mutex_);
    self->received_.emplace_back(objectName);
  }
  QuorHostBase& base() { return capi::hostBaseOf(*c_core_host(core_)); }

  c_core* core_ = nullptr;
  std::atomic<int> shown_{0};
  std::mutex mutex_;
  std::vector<std::string> received_;
};

INSTANTIATE_TEST_SUITE_P(CHost, QuorHostContract,
                         ::testing::Values(QuorHostContractFactory{
                             "HostWrittenInC", [] { return std::make_unique<CHostSubject>(); }}),
                         contractName);

}  // namespace
}  // namespace quor::contract
