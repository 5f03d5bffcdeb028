// Posts the library's closures to the main thread.
#pragma once

#include <functional>

namespace quor {

class KXMainThread {
 public:
  // Posts `closure` to the installed dispatcher. An exception thrown by an application
  // callback inside it is caught and logged, so it never reaches the dispatcher.
  static void post(std::function<void()> closure);

  // For reports to the app: inside a closure of post() (on the main thread), `closure` runs
  // when that closure has returned, in the same turn and in the order of these calls, so that
  // an event reaches the app with one hop to the main thread and after the library's own steps
  // for it; anywhere else, it is posted.
  static void afterCurrent(std::function<void()> closure);
};

}  // namespace quor
