#!/usr/bin/env bash
# Runs the demo's default journey (with the given options) and checks that its transcript holds
# every stage and that the run exited 0. Over XMPP it also checks that the private server and
# the desk program are gone afterwards.
set -euo pipefail
demo=$1
shift

# Decoys: a desk program and a server of someone else's, running all along. The checks below
# must not mistake them for the demo's own.
decoys=$(mktemp -d)
decoy_pids=()
cleanup() {
  [ ${#decoy_pids[@]} -gt 0 ] && kill "${decoy_pids[@]}" 2>/dev/null
  rm -rf "$decoys"
}
trap cleanup EXIT
for name in quor-cs-desk prosody; do
  ln -s "$(command -v sleep)" "$decoys/$name"
  "$decoys/$name" 300 &
  decoy_pids+=($!)
done

transcript=$("$demo" "$@")
printf '%s\n' "$transcript"
for stage in "connected to Quor Shop" "Ava: Hi, I am Ava" "You: Where is my order?" "Ava: Orders ship" \
             "You: (asks for a human agent)" "choose a group:" "You: (chooses the group" \
             "mode: human agent" "Lin: " "the desk asks for a rating" "You: (rates the agent" \
             "You: (leaves a message" "message left" "-- Thank you for contacting" \
             "service ended: Thank you" "Journey complete."; do
  grep -qF -- "$stage" <<<"$transcript" || { echo "missing stage: $stage" >&2; exit 1; }
done
# Over XMPP the demo names the two processes it started: both must be gone now. Only those are
# checked, never other desks or servers on the machine (the decoys below prove it).
pids=$(sed -n 's/^Started processes: server pid \([0-9]*\), desk pid \([0-9]*\)$/\1 \2/p' <<<"$transcript")
if grep -qF -- "--xmpp" <<<"$*"; then
  [ -n "$pids" ] || { echo "the demo did not name the processes it started" >&2; exit 1; }
fi
for pid in $pids; do
  if kill -0 "$pid" 2>/dev/null; then
    echo "process $pid that the demo started is still running" >&2
    exit 1
  fi
done

# A desk that refuses the handshake: the demo says so and exits 1.
if [ "$#" -eq 0 ]; then
  closed="$decoys/closed.json"
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
