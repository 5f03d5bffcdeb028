#!/usr/bin/env bash
# The code the docs show is the code the tests run: the Python desk of docs/protocol.md is
# examples/python-desk/desk.py in full, and each line of the contract snippet in
# docs/host-adapter.md is in examples/host-contract/loopback_contract_test.cpp.
# Usage: check-doc-snippets.sh SOURCE_DIR
set -euo pipefail
source_dir=$1

# The fenced block of `language` in `doc`, after the heading line `heading`.
block() {
  awk -v heading="$3" -v fence="\`\`\`$2" '
    $0 == heading {after = 1}
    after && $0 == fence {inside = 1; next}
    inside && $0 == "```" {exit}
    inside {print}' "$1"
}

if ! diff <(block "$source_dir/docs/protocol.md" python "### A desk in 50 lines") \
          "$source_dir/examples/python-desk/desk.py" >/dev/null; then
  echo "docs/protocol.md does not show examples/python-desk/desk.py as it is" >&2
  exit 1
fi

snippet=$(block "$source_dir/docs/host-adapter.md" cpp "## Proving an adapter right: the host contract suite" |
  grep -E 'INSTANTIATE|using quor::contract|makeLoopback|contractName' || true)
[ -n "$snippet" ] || { echo "docs/host-adapter.md shows no contract snippet" >&2; exit 1; }
while IFS= read -r line; do
  if ! grep -qF -- "$line" "$source_dir/examples/host-contract/loopback_contract_test.cpp"; then
    echo "docs/host-adapter.md shows a line the contract example does not have: $line" >&2
    exit 1
  fi
done <<<"$snippet"
echo "the docs' snippets match the code"
