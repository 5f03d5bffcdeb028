"""The C library and its declarations, through cffi's ABI mode (no compiler needed).

The declarations are read from quor_cs.h itself: the copy beside this file (put there by the
build or the install), else the source tree's. The library is QUOR_CS_LIBRARY when set, else
libquor_cs beside this file, else the system's (ctypes.util.find_library). The test kit's
(quor_cs_kit.h, libquor_cs_kit, QUOR_CS_KIT_LIBRARY) is loaded the same way, when the first
Kit is made: an app that never makes one needs only libquor_cs."""

import ctypes.util
import os
import re

from cffi import FFI

_here = os.path.dirname(os.path.abspath(__file__))


def _header_text(name="quor_cs.h"):
    for path in (os.path.join(_here, name),
                 os.path.join(_here, "..", "..", "..", "include", "QuorCustomerService", name)):
        if os.path.exists(path):
            with open(path, encoding="utf-8") as header:
                return header.read()
    raise ImportError(f"quor_cs: {name} not found beside the package or in the source tree")


def _declarations(text):
    # cffi reads plain C: keep integer #defines, drop every other preprocessor line and the
    # export macro.
    lines = []
    continued = False  # the line goes on a dropped preprocessor line (ends with a backslash)
    for line in text.splitlines():
        stripped = line.strip()
        if continued:
            continued = stripped.endswith("\\")
            continue
        if stripped in ('extern "C" {', "}") and not line.startswith(" "):
            continue  # the C++ linkage block, opened and closed under #ifdef __cplusplus
        if stripped.startswith("#"):
            continued = stripped.endswith("\\")
            if re.match(r"#define\s+QUOR_CS_C_API_(MAJOR|MINOR)\s+\d+\s*$", stripped):
                lines.append(stripped)
            continue
        lines.append(line.replace("QUOR_CS_C_API ", "").replace("QUOR_CS_KIT_API ", ""))
    return "\n".join(lines)


def _library_path(name="quor_cs", variable="QUOR_CS_LIBRARY"):
    if os.environ.get(variable):
        return os.environ[variable]
    for file in (f"lib{name}.so.{_major}", f"lib{name}.so", f"lib{name}.dylib", f"{name}.dll"):
        path = os.path.join(_here, file)
        if os.path.exists(path):
            return path
    found = ctypes.util.find_library(name)
    if not found:
        raise ImportError(f"quor_cs: lib{name} not found (set {variable})")
    return found


_header = _header_text()
# The library's file carries the header's major version (its SONAME).
_major = re.search(r"#define\s+QUOR_CS_C_API_MAJOR\s+(\d+)", _header).group(1)
ffi = FFI()
ffi.cdef(_declarations(_header))
lib = ffi.dlopen(_library_path())
_kit_lib = None


def kit_lib():
    """libquor_cs_kit, loaded on first use."""
    global _kit_lib
    if _kit_lib is None:
        ffi.cdef(_declarations(_header_text("quor_cs_kit.h")))
        _kit_lib = ffi.dlopen(_library_path("quor_cs_kit", "QUOR_CS_KIT_LIBRARY"))
    return _kit_lib
