#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "QuorCustomerService/Host/KXTypes.h"
#include "QuorCustomerService/QuorCustomerServiceExport.h"

namespace quor {

// One option of the human-agent evaluation: its text and the score it stands for. Filled by
// the decoder and then only read.
class QUOR_CS_EXPORT KXEvaluateItem {
 public:
  const KXString& describe() const { return describe_; }
  void setDescribe(KXString describe) { describe_ = std::move(describe); }
  int32_t value() const { return value_; }
  void setValue(int32_t value) { value_ = value; }

 private:
  KXString describe_;
  int32_t value_ = 0;
};

// A shared, read-only list of evaluation options; a null pointer is an absent list.
using KXEvaluateItemList = std::shared_ptr<const std::vector<std::shared_ptr<KXEvaluateItem>>>;

}  // namespace quor
