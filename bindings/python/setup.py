"""Puts quor_cs.h beside the package when it is built (pip install bindings/python): the
package reads its declarations from it. The header comes from QUOR_CS_HEADER when set, else
from the source tree. The library itself is found at import (docs/python.md)."""
import os
import shutil

from setuptools import setup
from setuptools.command.build_py import build_py

HERE = os.path.dirname(os.path.abspath(__file__))


class BuildWithHeader(build_py):
    def run(self):
        super().run()
        header = os.environ.get("QUOR_CS_HEADER") or os.path.join(
            HERE, "..", "..", "include", "QuorCustomerService", "quor_cs.h")
        if not os.path.exists(header):
            raise SystemExit("quor_cs.h not found: set QUOR_CS_HEADER to include/QuorCustomerService/quor_cs.h")
        shutil.copy(header, os.path.join(self.build_lib, "quor_cs", "quor_cs.h"))
        # The test kit's declarations, beside it.
        shutil.copy(os.path.join(os.path.dirname(header), "quor_cs_kit.h"),
                    os.path.join(self.build_lib, "quor_cs", "quor_cs_kit.h"))


setup(cmdclass={"build_py": BuildWithHeader})
