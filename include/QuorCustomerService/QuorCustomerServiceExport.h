// Export macro of the QuorCustomerService shared library.
#pragma once

#if defined(_WIN32)
#if defined(QUOR_CS_BUILDING_LIBRARY)
#define QUOR_CS_EXPORT __declspec(dllexport)
#else
#define QUOR_CS_EXPORT __declspec(dllimport)
#endif
#else
#define QUOR_CS_EXPORT __attribute__((visibility("default")))
#endif
