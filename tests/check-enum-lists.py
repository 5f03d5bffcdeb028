#!/usr/bin/env python3
"""The C header's enumerations are the one list: each binding's enum must have the same names
for the same values, in the same order, and end with (Java) or hold (Python) UNKNOWN for a value
a newer library adds. The C++ enums are tied to the header by static assertions in the C layer.

Usage: check-enum-lists.py SOURCE_DIR
"""
import re
import sys
from pathlib import Path

# C enum -> (the prefix of its enumerators, the bindings' name)
ENUMS = {
    "quor_cs_result": ("QUOR_CS_", "Result"),
    "quor_cs_state": ("QUOR_CS_STATE_", "State"),
    "quor_cs_reason": ("QUOR_CS_REASON_", "Reason"),
    "quor_cs_author": ("QUOR_CS_AUTHOR_", "Author"),
    "quor_cs_delivery": ("QUOR_CS_DELIVERY_", "Delivery"),
    "quor_cs_xmpp_status": ("QUOR_CS_XMPP_", "XmppStatus"),
    "quor_cs_xmpp_error": ("QUOR_CS_XMPP_ERROR_", "XmppError"),
    "quor_cs_app_state": ("QUOR_CS_APP_", "AppState"),
}


def c_enums(header):
    found = {}
    for name, body in re.findall(r"typedef enum (\w+) \{(.*?)\} \1;", header, re.S):
        body = re.sub(r"/\*.*?\*/", "", body, flags=re.S)
        prefix = ENUMS.get(name, ("", ""))[0]
        members = []
        for member, value in re.findall(r"(\w+)\s*=\s*(-?\d+)", body):
            # The C layer's own errors (negative results) have no counterpart in the bindings.
            if int(value) >= 0:
                members.append((member[len(prefix):], int(value)))
        found[name] = members
    return found


def java_enum(path):
    text = re.sub(r"/\*.*?\*/|//[^\n]*", "", path.read_text(), flags=re.S)
    body = re.search(r"public enum \w+ \{(.*?)(;|\})", text, re.S).group(1)
    members = re.findall(r"([A-Z][A-Z0-9_]*)(?:\((\d+)\))?", body)
    return [(name, int(code) if code else None) for name, code in members]


def python_enums(text):
    found = {}
    for name, body in re.findall(r"class (\w+)\(_CEnum\):\n((?:    .*\n|\n)*)", text):
        found[name] = [(member, int(value))
                       for member, value in re.findall(r"^    ([A-Z_]+) = (-?\d+)", body, re.M)]
    return found


def main(source):
    source = Path(source)
    header = c_enums((source / "include/QuorCustomerService/quor_cs.h").read_text())
    python = python_enums((source / "bindings/python/quor_cs/__init__.py").read_text())
    problems = []
    for c_name, (_, binding) in ENUMS.items():
        expected = header.get(c_name)
        if not expected:
            problems.append(f"quor_cs.h has no enum {c_name}")
            continue
        java = java_enum(source / f"bindings/java/src/com/quor/cs/{binding}.java")
        if not java or java[-1][0] != "UNKNOWN":
            problems.append(f"Java {binding} does not end with UNKNOWN")
        java_members = [(name, code) for name, code in java if name != "UNKNOWN"]
        sequential = all(value == index for index, (_, value) in enumerate(expected))
        if sequential:
            wanted = [(name, None) for name, _ in expected]  # mapped by position
        else:
            wanted = expected  # each carries its code
        if java_members != wanted:
            problems.append(f"Java {binding} {java_members} differs from {c_name} {wanted}")
        py = python.get(binding, [])
        if ("UNKNOWN", -1) not in py:
            problems.append(f"Python {binding} has no UNKNOWN = -1")
        py_members = [member for member in py if member[0] != "UNKNOWN"]
        if py_members != expected:
            problems.append(f"Python {binding} {py_members} differs from {c_name} {expected}")
    for problem in problems:
        print(problem, file=sys.stderr)
    if problems:
        return 1
    print(f"{len(ENUMS)} enumerations agree: quor_cs.h, Java, Python")
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1]))
