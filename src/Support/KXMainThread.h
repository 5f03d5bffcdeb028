// Posts the library's closures to the main thread.
#pragma once

#include <functional>

namespace quor {

class KXMainThread {
 public:
  // Posts `closure` to the installed dispatcher. An exception thrown by an application
  // callback inside it is caught and logged, so it never reaches the dispatcher.
  static void post(std::function<void()> closure);
};

}  // namespace quor
