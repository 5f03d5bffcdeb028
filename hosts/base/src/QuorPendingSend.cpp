#include "QuorHostBase/QuorPendingSend.h"

namespace quor {

QuorPendingSend::QuorPendingSend(std::shared_ptr<KXMessage> record,
                                 KXCoreClient::SuccessBlock success, KXCoreClient::ErrorBlock error,
                                 KXCoreClient::RecordSuccessBlock recordSuccess,
                                 KXCoreClient::RecordErrorBlock recordError)
    : record_(std::move(record)),
      success_(std::move(success)),
      error_(std::move(error)),
      recordSuccess_(std::move(recordSuccess)),
      recordError_(std::move(recordError)) {}

bool QuorPendingSend::succeed() {
  if (reported_.exchange(true)) return false;
  report(true, 0);
  return true;
}

bool QuorPendingSend::fail(int64_t errorCode) {
  if (reported_.exchange(true)) return false;
  report(false, errorCode);
  return true;
}

void QuorPendingSend::report(bool ok, int64_t errorCode) {
  reported_ = true;
  if (ok) {
    if (success_) success_(record_->messageId());
    if (recordSuccess_) recordSuccess_(record_);
  } else {
    if (error_) error_(errorCode, record_->messageId());
    if (recordError_) recordError_(errorCode, record_);
  }
}

}  // namespace quor
