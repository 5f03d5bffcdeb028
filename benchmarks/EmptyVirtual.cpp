#include "EmptyVirtual.h"

namespace quor::bench {

EmptyVirtual::~EmptyVirtual() = default;
bool EmptyVirtual::call(const std::shared_ptr<KXMessage>&, bool) { return false; }
std::unique_ptr<EmptyVirtual> EmptyVirtual::make() { return std::make_unique<EmptyVirtual>(); }

}  // namespace quor::bench
