#include "QuorCustomerService/Host/KXUserInfo.h"

namespace quor {

KXUserInfo::KXUserInfo(KXString userId, KXString name, KXString portrait)
    : userId_(std::move(userId)), name_(std::move(name)), portraitUri_(std::move(portrait)) {}

}  // namespace quor
