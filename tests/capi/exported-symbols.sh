#!/usr/bin/env bash
# A C library exports exactly the functions its header declares: each one, and nothing else
# (libquor_cs and quor_cs.h, libquor_cs_kit and quor_cs_kit.h).
# Usage: exported-symbols.sh LIBRARY HEADER
set -euo pipefail
library=$1
header=$2
exported=$(nm -D --defined-only "$library" | awk '$2 ~ /^[TtWw]$/ {print $3}' | sort)
declared=$(grep -oE '\bquor_cs_[a-z_]+\(' "$header" | tr -d '(' | sort -u)
if [ "$exported" != "$declared" ]; then
  echo "exported and declared functions differ (< exported, > declared):" >&2
  diff <(printf '%s\n' "$exported") <(printf '%s\n' "$declared") >&2 || true
  exit 1
fi
other=$(nm -D --defined-only "$library" | awk '$2 !~ /^[TtWw]$/ {print $3}' | grep -v '^$' || true)
if [ -n "$other" ]; then
  echo "$(basename "$library") exports data or other symbols: $other" >&2
  exit 1
fi
echo "$(basename "$library") exports its $(wc -l <<<"$exported") functions and nothing else"
