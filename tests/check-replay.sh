#!/usr/bin/env bash
# Runs a replay script and compares its trace with the pinned one.
# Usage: check-replay.sh REPLAY_TOOL SCRIPT EXPECTED_TRACE
# Set QUOR_CS_UPDATE_TRACES=1 to write the pinned trace instead.
set -euo pipefail
tool=$1
script=$2
expected=$3
actual=$("$tool" "$script")
if [ "${QUOR_CS_UPDATE_TRACES:-0}" = 1 ]; then
  printf '%s\n' "$actual" > "$expected"
  exit 0
fi
diff -u "$expected" <(printf '%s\n' "$actual")
