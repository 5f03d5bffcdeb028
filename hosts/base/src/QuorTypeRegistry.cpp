#include "QuorHostBase/QuorTypeRegistry.h"

#include "QuorHostBase/QuorRawContent.h"

namespace quor {

void QuorTypeRegistry::add(const KXMessageContentType& type) {
  std::lock_guard<std::mutex> lock(mutex_);
  if (byName_.count(type.objectName()) == 0) order_.push_back(type.objectName());
  byName_[type.objectName()] = type;
}

bool QuorTypeRegistry::knows(const std::string& objectName) const {
  std::lock_guard<std::mutex> lock(mutex_);
  return byName_.count(objectName) != 0;
}

std::vector<KXMessageContentType> QuorTypeRegistry::types() const {
  std::lock_guard<std::mutex> lock(mutex_);
  std::vector<KXMessageContentType> types;
  for (const auto& name : order_) types.push_back(byName_.at(name));
  return types;
}

std::shared_ptr<KXMessageContent> QuorTypeRegistry::contentFor(
    const std::string& objectName) const {
  KXMessageContentType type;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    const auto it = byName_.find(objectName);
    if (it != byName_.end()) type = it->second;
  }
  if (auto content = type.create()) return content;
  return std::make_shared<QuorRawContent>(objectName);
}

}  // namespace quor
