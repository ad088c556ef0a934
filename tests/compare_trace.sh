#!/usr/bin/env bash
# compare_trace.sh PROGRAM SCENARIO: replays a scenario and compares its trace with the recorded
# one.
set -euo pipefail
diff -u --label expected --label replayed "${2%.jsonl}.trace" <("$1" --readable "$2")
