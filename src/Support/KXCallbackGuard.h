// Contains exceptions at the library's borders: an application callback or a host call that
// throws is caught and logged, and the library carries on with the next step of its handling.
#pragma once

#include <exception>
#include <utility>

namespace quor {

class KXCallbackGuard {
 public:
  // Runs one application callback; an exception it throws is logged as
  // "ERROR: a callback threw: <what>".
  template <class Callback>
  static void run(Callback&& callback) noexcept {
    try {
      callback();
    } catch (const std::exception& error) {
      report(Source::Callback, error.what());
    } catch (...) {
      report(Source::Callback, nullptr);
    }
  }

  // Calls `block` with `args` when it is present (a callback the application may leave out),
  // guarded like run().
  template <class Block, class... Args>
  static void call(const Block& block, Args&&... args) noexcept {
    if (block) run([&] { block(std::forward<Args>(args)...); });
  }

  // Runs one call into the host and returns its result, or `fallback` when the host throws
  // (logged as "ERROR: the host threw: <what>").
  template <class Result, class HostCall>
  static Result host(Result fallback, HostCall&& hostCall) noexcept {
    try {
      return hostCall();
    } catch (const std::exception& error) {
      report(Source::Host, error.what());
    } catch (...) {
      report(Source::Host, nullptr);
    }
    return fallback;
  }

 private:
  enum class Source { Callback, Host };
  // Logs the error line; a logger that throws as well is ignored.
  static void report(Source source, const char* what) noexcept;
};

}  // namespace quor
