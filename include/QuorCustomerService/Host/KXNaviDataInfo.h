#pragma once

#include "QuorCustomerService/QuorCustomerServiceExport.h"

namespace quor {

// The host's configuration record handed to every extension module. The library never reads
// it; a host adapter may derive from it to carry its own data.
class QUOR_CS_EXPORT KXNaviDataInfo {
 public:
  virtual ~KXNaviDataInfo();
};

}  // namespace quor
