# Cross-building for 64-bit ARM Linux with Debian's g++-aarch64-linux-gnu. Programs built for
# the target (the tests, the replay tool) run under qemu-user through CTest's emulator, with
# the target's loader and libraries from /usr/aarch64-linux-gnu. Libraries of the target come
# from Debian's multiarch packages (libexpat1-dev:arm64 and the like).
#
#   cmake -S . -B build/arm64 --toolchain cmake/toolchains/aarch64-linux-gnu.cmake
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)

set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)

# Target libraries and headers from the cross sysroot and multiarch directories; header-only
# packages (nlohmann_json) and tools from the build machine.
set(CMAKE_FIND_ROOT_PATH /usr/aarch64-linux-gnu /)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE BOTH)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE BOTH)
set(ENV{PKG_CONFIG_LIBDIR} /usr/lib/aarch64-linux-gnu/pkgconfig:/usr/share/pkgconfig)

# The cross toolchain's C library first: with Debian's multiarch libc6:arm64 also installed (a
# dependency of the :arm64 -dev packages), the loader would otherwise mix the two glibc builds,
# and threads hang.
find_program(QUOR_CS_QEMU_AARCH64 NAMES qemu-aarch64 qemu-aarch64-static REQUIRED)
set(CMAKE_CROSSCOMPILING_EMULATOR ${QUOR_CS_QEMU_AARCH64} -L /usr/aarch64-linux-gnu
    -E LD_LIBRARY_PATH=/usr/aarch64-linux-gnu/lib)
