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
# New inputs go to the scratch directory, never into the committed seed corpus.
"$fuzzer" -max_total_time="$seconds" -max_len=4096 -timeout=10 -rss_limit_mb=2048 \
  -artifact_prefix="$findings/" -print_final_stats=1 "$scratch" "$seeds"
