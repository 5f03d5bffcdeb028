#!/usr/bin/env bash
# Installs the built library into a temporary prefix, checks what was installed, then builds and
# runs a small consumer against it: once with find_package, once with pkg-config.
# Usage: install-and-consume.sh BUILD_DIR CXX_COMPILER
set -euo pipefail
build_dir=$1
cxx=$2
here=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
prefix="$work/prefix"

cmake --install "$build_dir" --prefix "$prefix" >/dev/null

# Public headers only: nothing from the private sources.
for private in KXJsonReader.h KXJsonWriter.h KXClientState.h KXControlMessageHandler.h KXLog.h \
               KXMainThread.h KXInstanceSlot.h KXContentTypeDefinition.h; do
  if find "$prefix" -name "$private" | grep -q .; then
    echo "private header installed: $private" >&2
    exit 1
  fi
done
test -f "$prefix/include/QuorCustomerService/QuorCustomerService.h"
libdir=$(dirname "$(find "$prefix" -name 'libQuorCustomerService.so' | head -n 1)")

echo "--- find_package"
cmake -S "$here/consumer" -B "$work/cmake-build" -DCMAKE_PREFIX_PATH="$prefix" \
  -DCMAKE_CXX_COMPILER="$cxx" >/dev/null
cmake --build "$work/cmake-build" >/dev/null
"$work/cmake-build/consumer"

echo "--- pkg-config"
export PKG_CONFIG_PATH="$libdir/pkgconfig"
# shellcheck disable=SC2046
"$cxx" "$here/consumer/main.cpp" -o "$work/pkg-consumer" $(pkg-config --cflags --libs QuorCustomerService) \
  -Wl,-rpath,"$libdir"
"$work/pkg-consumer"
