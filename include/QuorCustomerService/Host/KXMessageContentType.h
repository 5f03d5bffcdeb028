#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "QuorCustomerService/Host/KXMessageContent.h"
#include "QuorCustomerService/QuorCustomerServiceExport.h"

namespace quor {

// A message content type as the host registers it: object name, storage flags and a factory
// that makes a fresh, empty instance for each received message. A plain value.
class QUOR_CS_EXPORT KXMessageContentType {
 public:
  using Factory = std::function<std::shared_ptr<KXMessageContent>()>;

  KXMessageContentType() = default;
  KXMessageContentType(std::string objectName, uint32_t persistentFlag, Factory factory);

  // The descriptor of a content class T with static getObjectName() and persistentFlag().
  template <class T>
  static KXMessageContentType of() {
    return KXMessageContentType(T::getObjectName(), T::persistentFlag(),
                                [] { return std::make_shared<T>(); });
  }

  const std::string& objectName() const { return objectName_; }
  uint32_t persistentFlag() const { return persistentFlag_; }
  // A fresh instance, or null when the descriptor has no factory.
  std::shared_ptr<KXMessageContent> create() const;

 private:
  std::string objectName_;
  uint32_t persistentFlag_ = 0;
  Factory factory_;
};

}  // namespace quor
