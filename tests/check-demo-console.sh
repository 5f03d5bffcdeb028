#!/usr/bin/env bash
# The demo's terminal chat with the desk's agent console over one private server: the console's
# link (the one-time sign-up of the first agent on the demo's fresh desk) is printed before the
# chat starts, and the customer chats with the robot meanwhile.
set -euo pipefail
demo=$1
output=$( (sleep 5; echo "Where is my order?"; sleep 3; echo "/quit") |
  timeout 60 "$demo" --xmpp --interactive --console 127.0.0.1:0)
printf '%s\n' "$output"
link=$(printf '%s\n' "$output" | sed -n 's/^Agent console: \(http:\/\/127\.0\.0\.1:[0-9]*\/#setup=[0-9a-f]*\)$/\1/p')
test -n "$link"
printf '%s\n' "$output" | grep -q "Ava: Orders ship within 24 hours"
