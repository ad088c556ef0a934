#!/usr/bin/env bash
# compare_trace.sh PROGRAM SCENARIO...: replays scenarios and compares their traces with the recorded
# ones.
set -euo pipefail
failed=0
for scenario in "${@:2}"; do
  diff -u --label expected --label replayed "${scenario%.jsonl}.trace" \
    <("$1" --readable "$scenario") || failed=1
done
exit $failed
