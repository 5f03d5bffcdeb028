// The two queues that hosts and apps run the library's work on: the main run loop and a host's
// worker thread.
#include <gmock/gmock.h>

#include <atomic>
#include <thread>

#include "QuorCustomerService/Host/KXMainRunLoop.h"
#include "QuorHostBase/QuorHostBase.h"
#include "QuorHostBase/QuorWorkerThread.h"

namespace quor {
namespace {

using ::testing::ElementsAre;

TEST(MainRunLoop, RunsInOrderWhatWasPostedAndWhatThatPosts) {
  KXMainRunLoop loop;
  std::vector<int> ran;
  loop.post([&] {
    ran.push_back(1);
    loop.post([&] { ran.push_back(3); });  // posted while running: runs in the same drain
  });
  loop.post([&] { ran.push_back(2); });
  loop.post(nullptr);  // an empty closure is dropped
  EXPECT_EQ(loop.pendingCount(), 2u);
  EXPECT_EQ(loop.runUntilIdle(), 3u);
  EXPECT_THAT(ran, ElementsAre(1, 2, 3));
  EXPECT_FALSE(loop.runOnce(std::chrono::milliseconds(1)));  // nothing came
}

TEST(MainRunLoop, QuitFromAnotherThreadEndsRunAndRunOnce) {
  KXMainRunLoop loop;
  std::atomic<int> ran{0};
  std::thread poster([&] {
    for (int i = 0; i < 100; ++i) loop.post([&] { ++ran; });
    loop.post([&] { loop.quit(); });
  });
  loop.run();  // returns at the quit, after the closures posted before it
  poster.join();
  EXPECT_EQ(ran.load(), 100);
  loop.quit();
  EXPECT_FALSE(loop.runOnce(std::chrono::seconds(10)));  // a pending quit ends it at once
}

TEST(WorkerThread, RunsWorkInOrderOnItsNamedThread) {
  std::vector<std::string> seen;
  {
    QuorWorkerThread worker("delivery");
    for (int i = 0; i < 3; ++i) {
      worker.post([&, i] { seen.push_back(QuorHostBase::threadName() + std::to_string(i)); });
    }
    std::string inside;
    worker.runAndWait([&] {
      // From its own thread, runAndWait runs at once instead of waiting for itself.
      worker.runAndWait([&] { inside = QuorHostBase::threadName(); });
    });
    EXPECT_EQ(inside, "delivery");
    worker.post([&] { seen.push_back("last"); });
  }  // the destructor finishes what was posted
  EXPECT_THAT(seen, ElementsAre("delivery0", "delivery1", "delivery2", "last"));
}

TEST(WorkerThread, MayBeDestroyedByItsOwnWork) {
  auto worker = std::make_shared<QuorWorkerThread>("host");
  std::weak_ptr<QuorWorkerThread> weak = worker;
  QuorWorkerThread* raw = worker.get();
  // The work holds the last owner and lets it go on the worker's own thread.
  raw->post([holder = std::move(worker)]() mutable { holder.reset(); });
  for (int i = 0; i < 5000 && !weak.expired(); ++i)
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  EXPECT_TRUE(weak.expired());
}

}  // namespace
}  // namespace quor
