#!/usr/bin/env bash
# The module map makes quor_cs.h a clang module: an Objective-C file and a C program import it
# (clang -fmodules), and the C program links libquor_cs and runs. (The map's `link` is taken
# by Apple's and Microsoft's linkers; on Linux the program names -lquor_cs itself.)
# Usage: check-module.sh CLANG INCLUDE_DIR LIBRARY_DIR SOURCE_DIR
set -euo pipefail
clang=$1
include=$2
libdir=$3
here=$4
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
flags=(-fmodules -fmodules-cache-path="$work/cache" -fmodule-map-file="$include/QuorCustomerService/module.modulemap"
  -I"$include" -Werror)
"$clang" "${flags[@]}" -x objective-c -c "$here/module_import.m" -o "$work/objc.o"
"$clang" "${flags[@]}" -std=c99 "$here/module_import.c" -L"$libdir" -lquor_cs -Wl,-rpath,"$libdir" -o "$work/c-import"
"$work/c-import"
