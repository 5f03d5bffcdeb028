#include "QuorCustomerService/Host/KXNaviDataInfo.h"

namespace quor {

KXNaviDataInfo::~KXNaviDataInfo() = default;

}  // namespace quor
