#!/usr/bin/env bash
# Fails when the shared library exports anything but the public classes of namespace quor and
# the C entry points. Usage: exported-symbols.sh LIBRARY INCLUDE_DIR
set -euo pipefail
library=$1
include_dir=$2

public=$(grep -rhoE '(class|struct) QUOR_CS_EXPORT [A-Za-z]+' "$include_dir" | awk '{print $3}' | sort -u)
allowed="QuorCustomerServiceVersionNumber|QuorCustomerServiceVersionString|QuorCustomerServiceLoadExtensionModule"
pattern="^((typeinfo name for |typeinfo for |vtable for )?quor::($(echo "$public" | paste -sd '|'))(::|$| |<)|($allowed)$)"

symbols=$(nm -D --defined-only "$library" | awk '{print $3}')
unexpected=$(echo "$symbols" | c++filt | grep -vE "$pattern" || true)
if [ -n "$unexpected" ]; then
  echo "unexpected exported symbols:" >&2
  echo "$unexpected" >&2
  exit 1
fi
for symbol in QuorCustomerServiceVersionNumber QuorCustomerServiceVersionString QuorCustomerServiceLoadExtensionModule; do
  grep -qx "$symbol" <<<"$symbols" || { echo "missing: $symbol" >&2; exit 1; }
done
echo "$(wc -l <<<"$symbols") exported symbols, all public"
