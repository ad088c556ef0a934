#!/usr/bin/env bash
# traces_replay.sh REPLAY PROGRAM: fails unless each world of the test program posted what its trace
# posts when REPLAY plays it. Leaves out the test with threads, whose trace has their calls in one
# possible order.
set -euo pipefail
traces=$(mktemp -d)
trap 'rm -rf "$traces"' EXIT
GTEST_FILTER=-*OfEveryThread VELTRANO_TRACES=$traces "$2" >"$traces/log" || { cat "$traces/log" && exit 1; }
for scenario in "$traces"/*.jsonl; do
  "$1" "$scenario" | grep '"post":' | diff - "${scenario%.jsonl}.posts" || { cat "$scenario" && exit 1; }
done
