#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "QuorCustomerService/Host/KXMessageContentType.h"

namespace quor {

// A host's registered message types by object name: what a received message decodes into.
//
// Threads: any; one small lock, never held while a content is made.
class QuorTypeRegistry {
 public:
  // Registers `type`; a name registered again takes the new type and keeps its place.
  void add(const KXMessageContentType& type);
  bool knows(const std::string& objectName) const;
  // The registered types, in registration order.
  std::vector<KXMessageContentType> types() const;
  // A fresh instance of the type registered under `objectName`, or a QuorRawContent that
  // keeps the name and the bytes.
  std::shared_ptr<KXMessageContent> contentFor(const std::string& objectName) const;

 private:
  mutable std::mutex mutex_;
  std::map<std::string, KXMessageContentType> byName_;
  std::vector<std::string> order_;
};

}  // namespace quor
