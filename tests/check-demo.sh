#!/usr/bin/env bash
# Runs the demo's default journey (with the given options) and checks that its transcript holds
# every stage and that the run exited 0. Over XMPP it also checks that the private server and
# the desk program are gone afterwards.
set -euo pipefail
demo=$1
shift
transcript=$("$demo" "$@")
printf '%s\n' "$transcript"
for stage in "connected to Quor Shop" "Ava: Hi, I am Ava" "You: Where is my order?" "Ava: Orders ship" \
             "You: (asks for a human agent)" "choose a group:" "You: (chooses the group" \
             "mode: human agent" "Lin: " "the desk asks for a rating" "You: (rates the agent" \
             "You: (leaves a message" "message left" "-- Thank you for contacting" \
             "service ended: Thank you" "Journey complete."; do
  grep -qF -- "$stage" <<<"$transcript" || { echo "missing stage: $stage" >&2; exit 1; }
done
port=$(sed -n 's/^Private XMPP server on 127.0.0.1:\([0-9]*\);.*/\1/p' <<<"$transcript")
if [ -n "$port" ]; then
  if (exec 3<>"/dev/tcp/127.0.0.1/$port") 2>/dev/null; then
    echo "the private server on port $port is still running" >&2
    exit 1
  fi
  if pgrep -x quor-cs-desk >/dev/null; then
    echo "a desk program is still running" >&2
    exit 1
  fi
fi

# A desk that refuses the handshake: the demo says so and exits 1.
if [ "$#" -eq 0 ]; then
  closed=$(mktemp)
  trap 'rm -f "$closed"' EXIT
  echo '{"deskId":"closed","serviceType":3,"handshake":{"fail":true,"message":"Closed today"}}' >"$closed"
  set +e
  refused=$("$demo" --profile "$closed")
  status=$?
  set -e
  if [ "$status" -ne 1 ] || ! grep -qF "Journey failed" <<<"$refused" || ! grep -qF "Closed today" <<<"$refused"; then
    echo "a refused handshake: exit $status, output: $refused" >&2
    exit 1
  fi
fi
