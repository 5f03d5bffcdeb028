#pragma once

#include <string>

#include "QuorCustomerService/Host/KXMessageContent.h"

namespace quor {

// A host's own content for an object name that no one registered: it keeps the received bytes
// and its name, and is stored like a persisted message.
class QuorRawContent : public KXMessageContent {
 public:
  explicit QuorRawContent(std::string objectName) : objectName_(std::move(objectName)) {}

  std::string objectName() const override { return objectName_; }
  uint32_t messagePersistentFlag() const override;
  KXData encode() override { return bytes_; }
  void decodeWithData(const KXData& data) override { bytes_ = data; }

 private:
  std::string objectName_;
  KXData bytes_;
};

}  // namespace quor
