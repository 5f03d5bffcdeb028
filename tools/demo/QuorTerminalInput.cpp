#include "QuorTerminalInput.h"

#include <iostream>
#include <thread>

namespace quor {

QuorTerminalInput::QuorTerminalInput() : shared_(std::make_shared<Shared>()) {
  std::thread([shared = shared_] {
    for (std::string line; std::getline(std::cin, line);) {
      std::lock_guard<std::mutex> lock(shared->mutex);
      shared->lines.push_back(std::move(line));
      shared->typed.notify_one();
    }
    std::lock_guard<std::mutex> lock(shared->mutex);
    shared->ended = true;
    shared->typed.notify_one();
  }).detach();
}

std::optional<std::string> QuorTerminalInput::next(std::chrono::milliseconds wait) {
  std::unique_lock<std::mutex> lock(shared_->mutex);
  shared_->typed.wait_for(lock, wait, [&] { return !shared_->lines.empty() || shared_->ended; });
  if (shared_->lines.empty()) return std::nullopt;
  std::string line = std::move(shared_->lines.front());
  shared_->lines.pop_front();
  return line;
}

bool QuorTerminalInput::ended() const {
  std::lock_guard<std::mutex> lock(shared_->mutex);
  return shared_->ended && shared_->lines.empty();
}

}  // namespace quor
