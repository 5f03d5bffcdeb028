#include "QuorCustomerService/QuorCustomerService.h"

// QUOR_CS_VERSION_MAJOR, _MINOR and _TEXT come from the project's version in CMakeLists.txt.
extern "C" {
const double QuorCustomerServiceVersionNumber =
    QUOR_CS_VERSION_MAJOR + QUOR_CS_VERSION_MINOR / 10.0;
const char QuorCustomerServiceVersionString[] = QUOR_CS_VERSION_TEXT;
}
