// The outcome of one send with closures: whatever the host does (both closures, one of them
// twice), exactly the first report reaches the library's handling.
#pragma once

#include <atomic>
#include <memory>
#include <utility>

namespace quor {

class KXSendOutcome {
 public:
  KXSendOutcome() : reported_(std::make_shared<std::atomic<bool>>(false)) {}

  // `closure` wrapped so that it runs only when no closure of this send has run before.
  template <class Closure>
  auto once(Closure closure) const {
    return [reported = reported_, closure = std::move(closure)](auto&&... args) {
      if (!reported->exchange(true)) closure(std::forward<decltype(args)>(args)...);
    };
  }

 private:
  std::shared_ptr<std::atomic<bool>> reported_;
};

}  // namespace quor
