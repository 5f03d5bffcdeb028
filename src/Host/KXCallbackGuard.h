// Runs the application's callbacks so that an exception they throw never reaches the host or
// the dispatcher: it is caught and logged, and the library carries on.
#pragma once

#include <exception>

namespace quor {

class KXCallbackGuard {
 public:
  template <class Callback>
  static void run(Callback&& callback) noexcept {
    try {
      callback();
    } catch (const std::exception& error) {
      report(error.what());
    } catch (...) {
      report(nullptr);
    }
  }

 private:
  // Logs "ERROR: a callback threw" (with the exception's text when there is one).
  static void report(const char* what) noexcept;
};

}  // namespace quor
