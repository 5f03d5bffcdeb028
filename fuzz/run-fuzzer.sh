#!/usr/bin/env bash
# Runs one fuzzer for a bounded time from its seed corpus; fails on any finding.
# Usage: run-fuzzer.sh FUZZER SEED_CORPUS FINDINGS_DIR SECONDS
set -euo pipefail
fuzzer=$1
seeds=$2
findings=$3
seconds=$4
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
mkdir -p "$findings"
# New inputs go to the scratch directory, never into the committed seed corpus. Inputs may grow
# to 1 MiB, and an input that takes more than 2 seconds counts as a finding: a cost that grows
# faster than the input shows up as a slow unit.
"$fuzzer" -max_total_time="$seconds" -max_len=1048576 -len_control=10 -timeout=2 \
  -rss_limit_mb=2048 \
  -artifact_prefix="$findings/" -print_final_stats=1 "$scratch" "$seeds"
