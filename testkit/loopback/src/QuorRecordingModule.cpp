#include "QuorLoopbackHost/QuorRecordingModule.h"

namespace quor {

bool QuorRecordingModule::didHoldReceivedMessage(const std::shared_ptr<KXMessage>& message,
                                                 bool offline) {
  std::lock_guard<std::mutex> lock(mutex_);
  offered_.push_back(message->objectName().value_or("") + (offline ? " offline" : " live"));
  return false;
}

void QuorRecordingModule::notifyConversationRead(int32_t conversationType,
                                                 const KXString& targetId) {
  std::lock_guard<std::mutex> lock(mutex_);
  read_.push_back(std::to_string(conversationType) + " " + targetId.value_or(""));
}

std::vector<std::string> QuorRecordingModule::offered() {
  std::lock_guard<std::mutex> lock(mutex_);
  return offered_;
}

std::vector<std::string> QuorRecordingModule::read() {
  std::lock_guard<std::mutex> lock(mutex_);
  return read_;
}

}  // namespace quor
