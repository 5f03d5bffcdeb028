// Export macro of the QuorCustomerService library: the public API of the shared library; empty
// in a static build (QUOR_CS_STATIC, set for the library's users by its CMake target and
// pkg-config file).
#pragma once

#if defined(QUOR_CS_STATIC)
#define QUOR_CS_EXPORT
#elif defined(_WIN32)
#if defined(QUOR_CS_BUILDING_LIBRARY)
#define QUOR_CS_EXPORT __declspec(dllexport)
#else
#define QUOR_CS_EXPORT __declspec(dllimport)
#endif
#else
#define QUOR_CS_EXPORT __attribute__((visibility("default")))
#endif
