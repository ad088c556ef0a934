#!/usr/bin/env bash
# traces_replay.sh REPLAY PROGRAM: runs the test PROGRAM and replays the trace of each of its
# worlds. Fails unless each replay posts what the world did. Skips the test with several threads,
# whose trace has just one of the possible orders.
set -euo pipefail
traces=$(mktemp -d)
trap 'rm -rf "$traces"' EXIT
GTEST_FILTER=-*OfEveryThread VELTRANO_TRACES=$traces "$2" >"$traces/log" || { cat "$traces/log" && exit 1; }
for scenario in "$traces"/*.jsonl; do
  "$1" "$scenario" | grep '"post":' | diff - "${scenario%.jsonl}.posts" || { cat "$scenario" && exit 1; }
done
