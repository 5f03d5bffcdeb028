// A process-wide slot holding one installed host implementation.
#pragma once

#include <memory>
#include <mutex>

namespace quor {

// Holds the implementation that the application (or a test) installed. Reads take a copy of
// the pointer under a short lock, so a host can be swapped while other threads use the old one.
template <class T>
class KXInstanceSlot {
 public:
  // The process-wide slot for T; never destroyed, so it can be used during static destruction.
  static KXInstanceSlot& global() {
    static auto* slot = new KXInstanceSlot();
    return *slot;
  }

  std::shared_ptr<T> get() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return instance_;
  }
  void set(std::shared_ptr<T> instance) {
    std::shared_ptr<T> old;
    {
      std::lock_guard<std::mutex> lock(mutex_);
      old.swap(instance_);
      instance_ = std::move(instance);
    }
  }

 private:
  mutable std::mutex mutex_;
  std::shared_ptr<T> instance_;
};

}  // namespace quor
