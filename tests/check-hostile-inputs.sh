#!/usr/bin/env bash
# The tools given hostile input files: each ends in bounded time with exit status 2 and a
# message that says what is wrong.
# Usage: check-hostile-inputs.sh QUOR_CS_DEMO QUOR_CS_REPLAY
set -uo pipefail
demo=$1
replay=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

deep=$(python3 -c "print('['*200000 + ']'*200000)")
printf '{"do":"receive","objectName":"KX:CsHsR","json":%s}\n' "$deep" > "$work/deep.jsonl"
printf '{"deskId":"d","serviceType":3,"x":%s}\n' "$deep" > "$work/deep.json"
echo '{"deskId":"d","serviceType":1e300}' > "$work/type.json"
echo '{"deskId":"d","serviceType":3,"agent":{"replies":-1e300}}' > "$work/replies.json"
echo '{"deskId":"d","serviceType":3,"robbot":{}}' > "$work/unknown.json"
echo '{"deskId":"d","serviceType":3,"leaveMessage":{"type":1e300}}' > "$work/leave.json"
echo '{"deskId":"d","serviceType":3,"evaluation":{"options":[{"value":2.5}]}}' > "$work/option.json"
printf '{"deskId":"d",\n "serviceType":3,,}\n' > "$work/broken.json"

failures=0
expect() {  # expect MESSAGE_PATTERN COMMAND...
  local pattern=$1
  shift
  timeout 30 "$@" >/dev/null 2>"$work/stderr"
  local status=$?
  if [ "$status" -ne 2 ] || ! grep -q -- "$pattern" "$work/stderr"; then
    echo "FAIL: $* -> exit $status, stderr: $(head -c 300 "$work/stderr")"
    failures=$((failures + 1))
  fi
}

expect "is a directory" "$replay" "$work"
expect "nested deeper than 128 levels" "$replay" "$work/deep.jsonl"
expect "cannot open" "$replay" "$work/missing.jsonl"
expect "larger than 16 MiB" "$replay" /dev/zero
expect "nested deeper than 128 levels" "$demo" --profile "$work/deep.json"
expect '"serviceType" must be a whole number' "$demo" --profile "$work/type.json"
expect '"agent.replies" must be a whole number' "$demo" --profile "$work/replies.json"
expect 'unknown key "robbot"' "$demo" --profile "$work/unknown.json"
expect '"leaveMessage.type" must be a whole number' "$demo" --profile "$work/leave.json"
expect '"evaluation.options\[0\].value" must be a whole number' "$demo" --profile "$work/option.json"
expect "line 2, column 18" "$demo" --profile "$work/broken.json"
expect "larger than 16 MiB" "$demo" --profile /dev/zero
expect "is a directory" "$demo" --profile "$work"
exit $((failures > 0))
