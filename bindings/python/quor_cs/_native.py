"""The C library and its declarations, through cffi's ABI mode (no compiler needed).

The declarations are read from quor_cs.h itself: the copy beside this file (put there by the
build or the install), else the source tree's. The library is QUOR_CS_LIBRARY when set, else
libquor_cs beside this file, else the system's (ctypes.util.find_library)."""

import ctypes.util
import os
import re

from cffi import FFI

_here = os.path.dirname(os.path.abspath(__file__))


def _header_text():
    for path in (os.path.join(_here, "quor_cs.h"),
                 os.path.join(_here, "..", "..", "..", "include", "QuorCustomerService",
                              "quor_cs.h")):
        if os.path.exists(path):
            with open(path, encoding="utf-8") as header:
                return header.read()
    raise ImportError("quor_cs: quor_cs.h not found beside the package or in the source tree")


def _declarations(text):
    # cffi reads plain C: keep integer #defines, drop every other preprocessor line and the
    # export macro.
    lines = []
    for line in text.splitlines():
        stripped = line.strip()
        if stripped in ('extern "C" {', "}") and not line.startswith(" "):
            continue  # the C++ linkage block, opened and closed under #ifdef __cplusplus
        if stripped.startswith("#"):
            if re.match(r"#define\s+QUOR_CS_C_API_(MAJOR|MINOR)\s+\d+\s*$", stripped):
                lines.append(stripped)
            continue
        lines.append(line.replace("QUOR_CS_C_API ", ""))
    return "\n".join(lines)


def _library_path():
    if os.environ.get("QUOR_CS_LIBRARY"):
        return os.environ["QUOR_CS_LIBRARY"]
    for name in ("libquor_cs.so.1", "libquor_cs.so", "libquor_cs.dylib", "quor_cs.dll"):
        path = os.path.join(_here, name)
        if os.path.exists(path):
            return path
    found = ctypes.util.find_library("quor_cs")
    if not found:
        raise ImportError("quor_cs: libquor_cs not found (set QUOR_CS_LIBRARY)")
    return found


ffi = FFI()
ffi.cdef(_declarations(_header_text()))
lib = ffi.dlopen(_library_path())
