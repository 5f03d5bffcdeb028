#!/usr/bin/env bash
# Installs the built library into a temporary prefix, checks what was installed, then builds and
# runs a small consumer against it (once with find_package, once with pkg-config) and an app's
# integration test on the installed test kit. Then it builds the library as a static library
# from SOURCE_DIR, installs it and does the same against that.
# Usage: install-and-consume.sh BUILD_DIR CXX_COMPILER SOURCE_DIR
set -euo pipefail
build_dir=$1
cxx=$2
source_dir=$3
here=$(cd "$(dirname "$0")" && pwd)
java=$(command -v java || true)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

consume() {
  local prefix=$1 kind=$2 lib

  # Public headers only: nothing from the private sources.
  for private in KXJsonReader.h KXJsonWriter.h KXClientState.h KXControlMessageHandler.h KXLog.h \
                 KXMainThread.h KXInstanceSlot.h KXContentTypeDefinition.h; do
    if find "$prefix" -name "$private" | grep -q .; then
      echo "private header installed: $private" >&2
      exit 1
    fi
  done
  test -f "$prefix/include/QuorCustomerService/QuorCustomerService.h"
  test -f "$prefix/include/QuorDeskSimulator/QuorDeskSimulator.h"
  lib=$([ "$kind" = shared ] && echo libQuorCustomerService.so || echo libQuorCustomerService.a)
  libdir=$(dirname "$(find "$prefix" -name "$lib" | head -n 1)")

  echo "--- $kind: find_package"
  cmake -S "$here/consumer" -B "$work/$kind-consumer" -DCMAKE_PREFIX_PATH="$prefix" \
    -DCMAKE_CXX_COMPILER="$cxx" >/dev/null
  cmake --build "$work/$kind-consumer" >/dev/null
  "$work/$kind-consumer/consumer"

  echo "--- $kind: pkg-config"
  local static_flag=""
  [ "$kind" = static ] && static_flag=--static
  # shellcheck disable=SC2046
  "$cxx" "$here/consumer/main.cpp" -o "$work/$kind-pkg-consumer" \
    $(PKG_CONFIG_PATH="$libdir/pkgconfig" pkg-config $static_flag --cflags --libs QuorCustomerService) \
    -Wl,-rpath,"$libdir"
  "$work/$kind-pkg-consumer"

  echo "--- $kind: a C program on libquor_cs and its kit (pkg-config), run with no environment"
  # shellcheck disable=SC2046
  cc -std=c99 "$source_dir/tests/capi/journey.c" -I"$source_dir/tests/capi" -o "$work/$kind-c-journey" \
    $(PKG_CONFIG_PATH="$libdir/pkgconfig" pkg-config --cflags --libs quor_cs_kit) -Wl,-rpath,"$libdir"
  env -i "$work/$kind-c-journey"
  if PKG_CONFIG_PATH="$libdir/pkgconfig" pkg-config --cflags quor_cs QuorCustomerService | grep -q -- -std=; then
    echo "a .pc file forces a language standard on its consumers" >&2
    exit 1
  fi

  if [ "$kind" = shared ]; then
    echo "--- $kind: the tools, run from the prefix with no environment"
    env -i "$prefix/bin/quor-cs-desk" --help >/dev/null
    env -i "$prefix/bin/quor-cs-server" --help >/dev/null
    test -f "$prefix/share/QuorCustomerService/prosody/mod_quor_cs_stamp.lua"
  fi

  if [ -f "$prefix/share/java/quor-cs.jar" ]; then
    echo "--- $kind: Java's jar and JNI libraries from the prefix, with no environment"
    env -i "$java" -XX:-UsePerfData -Djava.library.path="$libdir" -cp "$prefix/share/java/quor-cs.jar" \
      "$here/consumer/InstalledKit.java"
  fi

  echo "--- $kind: an app's integration test on the test kit (COMPONENTS Testing)"
  cmake -S "$source_dir/examples/app-test" -B "$work/$kind-app-test" -DCMAKE_PREFIX_PATH="$prefix" \
    -DCMAKE_CXX_COMPILER="$cxx" >/dev/null
  cmake --build "$work/$kind-app-test" >/dev/null
  "$work/$kind-app-test/app-test" --gtest_brief=1

  echo "--- $kind: a host adapter's contract test on the installed suite"
  cmake -S "$source_dir/examples/host-contract" -B "$work/$kind-contract" \
    -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_CXX_COMPILER="$cxx" >/dev/null
  cmake --build "$work/$kind-contract" >/dev/null
  "$work/$kind-contract/host-contract-test" --gtest_brief=1 --gtest_filter=-BrokenStamps/*
  if "$work/$kind-contract/host-contract-test" --gtest_filter=BrokenStamps/* >/dev/null 2>&1; then
    echo "the installed contract suite passed a host that confirms sends with sentTime 0" >&2
    exit 1
  fi
}

cmake --install "$build_dir" --prefix "$work/shared" >/dev/null
consume "$work/shared" shared

echo "--- static: build and install"
# With the C library on, as documented: it links the static C++ library into a shared object.
cmake -S "$source_dir" -B "$work/static-build" -DBUILD_SHARED_LIBS=OFF -DQUOR_CS_BUILD_TESTS=OFF \
  -DQUOR_CS_BUILD_PYTHON=OFF -DQUOR_CS_BUILD_JAVA=OFF -DQUOR_CS_BUILD_EXAMPLES=OFF \
  -DCMAKE_BUILD_TYPE=Release -DCMAKE_CXX_COMPILER="$cxx" >/dev/null
cmake --build "$work/static-build" -j"$(nproc 2>/dev/null || echo 2)" \
  --target QuorCustomerService QuorDeskSimulator QuorHostContract QuorCustomerServiceC QuorCustomerServiceCKit \
  >/dev/null
# The libraries' components only: the tools are the same programs in either build (checked above).
for component in Runtime Testing; do
  cmake --install "$work/static-build" --prefix "$work/static" --component "$component" >/dev/null
done
consume "$work/static" static
