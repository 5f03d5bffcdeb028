#pragma once

#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "QuorCustomerService/Host/QuorIMLibExtensionModule.h"

namespace quor {

// The extension modules an IM core carries, in load order, and the signal types they named.
//
// Threads: any; the lock is never held while a module runs.
class QuorModuleSet {
 public:
  // Adds `module` once (it must outlive the set) and takes its signal types.
  void load(QuorIMLibExtensionModule& module);
  std::vector<QuorIMLibExtensionModule*> modules() const;
  // Offers a received message to every module, in load order, also after one held it; true
  // when any held it.
  bool offer(const std::shared_ptr<KXMessage>& message, bool offline) const;
  // Whether a module named `objectName` a signal type: never stored, never shown.
  bool isSignal(const std::string& objectName) const;

 private:
  mutable std::mutex mutex_;
  std::vector<QuorIMLibExtensionModule*> modules_;
  std::set<std::string> signals_;
};

}  // namespace quor
