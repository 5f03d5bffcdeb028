// Writes the replay trace: one JSON object per line, in the order events happen.
#pragma once

#include <cstdio>
#include <memory>
#include <mutex>

#include "QuorCustomerService/QuorCustomerService.h"
#include "QuorLoopbackHost/QuorLoopbackObserver.h"

namespace quor {

class QuorReplayTrace : public QuorLoopbackObserver {
 public:
  explicit QuorReplayTrace(std::FILE* out) : out_(out) {}

  void event(const KXDictionary& line);

  void onRegister(const KXMessageContentType& type) override;
  void onSend(const QuorOutgoingSend& send) override;
  void onInsert(const std::shared_ptr<KXMessage>& record, const std::string& thread) override;
  void onFakeReceive(const std::shared_ptr<KXMessage>& message, const std::string& thread) override;
  void onLog(const QuorLogEntry& entry) override;

  // The trace forms of the library's values.
  static KXDictionary text(const KXString& value);
  static KXDictionary content(const std::shared_ptr<KXMessageContent>& content);
  static KXDictionary configuration(const KXCustomerServiceConfig& config);
  static KXDictionary groups(const KXCustomerServiceGroupList& groups);

 private:
  std::FILE* out_;
  std::mutex mutex_;
};

}  // namespace quor
