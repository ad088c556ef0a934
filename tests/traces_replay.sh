#!/usr/bin/env bash
# traces_replay.sh REPLAY PROGRAM: fails unless what each world of the test program has posted is what its
# trace posts when REPLAY plays it.
set -euo pipefail
traces=$(mktemp -d)
trap 'rm -rf "$traces"' EXIT
VELTRANO_TRACES=$traces "$2" >"$traces/log" || { cat "$traces/log" && exit 1; }
for scenario in "$traces"/*.jsonl; do
  "$1" "$scenario" | grep '"post":' | diff - "${scenario%.jsonl}.posts" || { cat "$scenario" && exit 1; }
done
