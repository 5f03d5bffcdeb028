#include "QuorHostBase/QuorModuleSet.h"

namespace quor {

void QuorModuleSet::load(QuorIMLibExtensionModule& module) {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    for (auto* loaded : modules_) {
      if (loaded == &module) return;
    }
  }
  // Asked outside the lock: the module may log.
  const auto signals = module.getSignalMessageClassList();
  std::lock_guard<std::mutex> lock(mutex_);
  for (const auto& type : signals) signals_.insert(type.objectName());
  modules_.push_back(&module);
}

std::vector<QuorIMLibExtensionModule*> QuorModuleSet::modules() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return modules_;
}

bool QuorModuleSet::offer(const std::shared_ptr<KXMessage>& message, bool offline) const {
  bool held = false;
  for (auto* module : modules()) held = module->didHoldReceivedMessage(message, offline) || held;
  return held;
}

bool QuorModuleSet::isSignal(const std::string& objectName) const {
  std::lock_guard<std::mutex> lock(mutex_);
  return signals_.count(objectName) != 0;
}

}  // namespace quor
