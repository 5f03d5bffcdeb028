#include "Client/KXAgentAnswerHook.h"

#include <map>
#include <mutex>
#include <utility>
#include <vector>

namespace quor {
namespace {

struct Listeners {
  std::mutex mutex;
  std::map<std::pair<std::string, const void*>, KXAgentAnswerHook::Listener> byDeskAndOwner;
};

Listeners& listeners() {
  static Listeners* shared = new Listeners();  // never destroyed: used until the process ends
  return *shared;
}

}  // namespace

void KXAgentAnswerHook::listen(const std::string& deskId, const void* owner, Listener listener) {
  auto& all = listeners();
  std::lock_guard<std::mutex> lock(all.mutex);
  all.byDeskAndOwner[{deskId, owner}] = std::move(listener);
}

void KXAgentAnswerHook::forget(const std::string& deskId, const void* owner) {
  auto& all = listeners();
  std::lock_guard<std::mutex> lock(all.mutex);
  all.byDeskAndOwner.erase({deskId, owner});
}

void KXAgentAnswerHook::report(const std::string& deskId, int32_t result, int32_t serviceType,
                               const KXString& text) {
  std::vector<Listener> called;
  {
    auto& all = listeners();
    std::lock_guard<std::mutex> lock(all.mutex);
    for (auto it = all.byDeskAndOwner.lower_bound({deskId, nullptr});
         it != all.byDeskAndOwner.end() && it->first.first == deskId; ++it) {
      called.push_back(it->second);
    }
  }
  for (const auto& listener : called) listener(result, serviceType, text);
}

}  // namespace quor
