#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "QuorCustomerService/Host/KXCoreClient.h"

namespace quor {

// The closures of one send, waiting for its outcome. Whichever of succeed() and fail() comes
// first reports, once, on the calling thread; later calls do nothing. Thread-safe.
class QuorPendingSend {
 public:
  QuorPendingSend(std::shared_ptr<KXMessage> record, KXCoreClient::SuccessBlock success,
                  KXCoreClient::ErrorBlock error, KXCoreClient::RecordSuccessBlock recordSuccess,
                  KXCoreClient::RecordErrorBlock recordError);

  const std::shared_ptr<KXMessage>& record() const { return record_; }
  // Whether the send passed any closure.
  bool observed() const { return success_ || error_ || recordSuccess_ || recordError_; }

  // Reports the send as sent; false when it was reported before.
  bool succeed();
  // Reports the send as failed with the host's error code; false when it was reported before.
  bool fail(int64_t errorCode);
  // For test doubles that imitate a faulty host: report even when reported before.
  void succeedAgain() { report(true, 0); }
  void failAgain(int64_t errorCode) { report(false, errorCode); }

 private:
  void report(bool ok, int64_t errorCode);

  std::shared_ptr<KXMessage> record_;
  KXCoreClient::SuccessBlock success_;
  KXCoreClient::ErrorBlock error_;
  KXCoreClient::RecordSuccessBlock recordSuccess_;
  KXCoreClient::RecordErrorBlock recordError_;
  std::atomic<bool> reported_{false};
};

}  // namespace quor
