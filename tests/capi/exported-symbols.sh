#!/usr/bin/env bash
# libquor_cs exports exactly the functions quor_cs.h declares: each one, and nothing else.
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
  echo "libquor_cs exports data or other symbols: $other" >&2
  exit 1
fi
echo "libquor_cs exports its $(wc -l <<<"$exported") functions and nothing else"
