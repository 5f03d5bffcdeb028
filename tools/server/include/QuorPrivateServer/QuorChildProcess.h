#pragma once

#include <sys/types.h>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

namespace quor {

// A program started for a test, a demo or a benchmark: its output goes to a file, and it dies
// with the thread that started it (PR_SET_PDEATHSIG), so it never outlives a crashed caller.
//
// Threads: one object is used from one thread at a time.
class QuorChildProcess {
 public:
  // The running program `arguments[0]` (searched on PATH), or null with the reason in `error`.
  // `diesWithCaller` false: it outlives a crashed caller (a janitor that cleans up after it).
  static std::unique_ptr<QuorChildProcess> start(const std::vector<std::string>& arguments,
                                                 const std::string& outputPath, std::string* error,
                                                 bool diesWithCaller = true);
  // Stops the program (SIGTERM, then SIGKILL) unless it ended.
  ~QuorChildProcess();
  QuorChildProcess(const QuorChildProcess&) = delete;
  QuorChildProcess& operator=(const QuorChildProcess&) = delete;

  pid_t pid() const { return pid_; }
  // Whether it still runs (reaping it when it ended).
  bool running();
  // Sends `signal` and waits up to `patience` for the end, then kills it.
  void stop(int signal, std::chrono::milliseconds patience = std::chrono::seconds(3));
  // Waits until its output holds `text` after the first `from` bytes: true; false when it
  // ended or `patience` passed, with its output in `error`.
  bool waitForOutput(const std::string& text, std::size_t from, std::chrono::milliseconds patience,
                     std::string* error);
  // The CPU time it used so far, user and system, in seconds.
  double cpuSeconds() const;
  const std::string& outputPath() const { return outputPath_; }
  // The whole of a file ("" when it cannot be read).
  static std::string readFile(const std::string& path);

 private:
  QuorChildProcess(pid_t pid, std::string outputPath)
      : pid_(pid), outputPath_(std::move(outputPath)) {}

  pid_t pid_;
  std::string outputPath_;
};

}  // namespace quor
