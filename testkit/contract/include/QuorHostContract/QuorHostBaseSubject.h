// The part of a contract subject that every host of this repository shares (they all stand on
// QuorHostBase): installing the host with the library's module, its interfaces, its listeners.
#pragma once

#include <atomic>

#include "QuorHostBase/QuorHostBase.h"
#include "QuorHostContract/QuorHostContract.h"

namespace quor::contract {

class QuorHostBaseSubject : public QuorHostContractSubject {
 public:
  KXCoreClient& core() override { return *host_; }
  KXMainThreadDispatcher& mainThread() override { return *host_; }
  void loadModule(QuorIMLibExtensionModule& module) override { host_->loadExtensionModule(module); }
  void addListener(std::function<void(const std::shared_ptr<KXMessage>&)> listener) override {
    host_->addMessageListener(std::move(listener));
  }
  std::string deskId() const override { return "desk"; }

 protected:
  // Installs `host`, quiet, with the library's module, counting what its listeners show.
  void adopt(QuorHostBase& host) {
    host_ = &host;
    host.install();
    host.setLogSink(nullptr, 0);
    host.loadExtensionModule();
    host.addMessageListener([this](const std::shared_ptr<KXMessage>&) { ++shown_; });
  }
  // Runs the main thread until the listeners were shown `count` messages after `before`.
  void waitShown(int before, std::size_t count) {
    runMainUntil([&] { return shown_ >= before + static_cast<int>(count); });
  }

  std::atomic<int> shown_{0};

 private:
  QuorHostBase* host_ = nullptr;
};

}  // namespace quor::contract
