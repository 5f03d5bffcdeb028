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

void QuorRecordingModule::notifyTypingStatus(int32_t, const KXString& targetId, bool typing) {
  std::lock_guard<std::mutex> lock(mutex_);
  signals_.push_back(targetId.value_or("") + (typing ? " typing" : " stopped"));
}

void QuorRecordingModule::notifyReadReceipt(int32_t, const KXString& targetId, int64_t messageId) {
  std::lock_guard<std::mutex> lock(mutex_);
  signals_.push_back(targetId.value_or("") + " read " + std::to_string(messageId));
}

std::vector<std::string> QuorRecordingModule::signals() {
  std::lock_guard<std::mutex> lock(mutex_);
  return signals_;
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
