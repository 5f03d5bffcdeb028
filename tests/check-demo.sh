#!/usr/bin/env bash
# Runs the demo's default journey and checks that its transcript holds every stage.
set -euo pipefail
transcript=$("$1")
printf '%s\n' "$transcript"
for stage in "connected to Quor Shop" "Ava: Hi, I am Ava" "You: Where is my order?" "Ava: Orders ship" \
             "You: (asks for a human agent)" "choose a group:" "You: (chooses the group" \
             "mode: human agent" "Lin: " "the desk asks for a rating" "You: (rates the agent" \
             "You: (leaves a message" "message left" "-- Thank you for contacting" \
             "service ended: Thank you" "Journey complete."; do
  grep -qF -- "$stage" <<<"$transcript" || { echo "missing stage: $stage" >&2; exit 1; }
done
