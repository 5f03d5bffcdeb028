// The app's main thread as a C dispatcher: each closure of the library becomes a task the app
// runs (or drops) once.
#include <mutex>

#include "QuorCApi.h"

struct quor_cs_task {
  std::function<void()> closure;
};

namespace quor::capi {
namespace {

class CDispatcher : public KXMainThreadDispatcher {
 public:
  CDispatcher(quor_cs_post_fn post, void* user) : post_(post), user_(user) {}
  void post(std::function<void()> closure) override {
    // The task belongs to the app from here until it runs or drops it.
    post_(user_, new quor_cs_task{std::move(closure)});
  }

 private:
  const quor_cs_post_fn post_;
  void* const user_;
};

// The dispatcher that was installed before the app's, to go back to.
struct Installed {
  std::mutex mutex;
  std::shared_ptr<KXMainThreadDispatcher> previous;
  std::shared_ptr<KXMainThreadDispatcher> app;  // the app's, while it has one
};
Installed& installed() {
  static Installed* state = new Installed();  // never destroyed: tasks may run during exit
  return *state;
}

}  // namespace

void keepAppDispatcher() {
  auto& state = installed();
  std::lock_guard<std::mutex> lock(state.mutex);
  if (!state.app) return;
  state.previous = KXMainThreadDispatcher::shared();  // the host's, to go back to
  KXMainThreadDispatcher::setShared(state.app);
}

}  // namespace quor::capi

extern "C" {

void quor_cs_set_dispatcher(quor_cs_post_fn post, void* user) {
  using namespace quor;
  capi::guarded([&] {
    auto& state = capi::installed();
    std::lock_guard<std::mutex> lock(state.mutex);
    if (!post) {
      if (state.app) KXMainThreadDispatcher::setShared(std::move(state.previous));
      state.app.reset();
      return QUOR_CS_OK;
    }
    if (!state.app) state.previous = KXMainThreadDispatcher::shared();
    state.app = std::make_shared<capi::CDispatcher>(post, user);
    KXMainThreadDispatcher::setShared(state.app);
    return QUOR_CS_OK;
  });
}

void quor_cs_run_task(quor_cs_task* task) {
  if (!task) return;
  quor::capi::guarded([task] {
    // The library's closures contain the app's exceptions themselves.
    if (task->closure) task->closure();
    return QUOR_CS_OK;
  });
  delete task;
}

void quor_cs_drop_task(quor_cs_task* task) { delete task; }

}  // extern "C"
