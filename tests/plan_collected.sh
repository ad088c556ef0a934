#!/usr/bin/env bash
# plan_collected.sh COLLECTOR PLAN HOST: fails unless the collector shows that HOST's event "Bought" is
# not as PLAN says: in its readable lines, under /violations and by its status.
set -euo pipefail
if [[ ${1:-} == --violations ]]; then
  "${@:2}"
  exec python3 -c 'import json, os, urllib.request
page = os.environ["VELTRANO_COLLECTOR_PAGE"]
violations = json.load(urllib.request.urlopen(page + "violations"))
assert "Bought: \"items\" is 3; planned: list of object (minItems 1)" in violations[0]["violations"], violations
events = json.load(urllib.request.urlopen(page + "events"))
assert violations == [event for event in events if "violations" in event]'
fi
with_collector=$(dirname "${BASH_SOURCE[0]}")/../scripts/with-collector
status=0
output=$("$with_collector" "$1" --format readable --plan "$2" -- "${BASH_SOURCE[0]}" --violations "$3") ||
  status=$?
((status == 3)) || { echo "The status is $status, and not 3: $output" && exit 1; }
grep -q 'event="Bought".*NOT AS PLANNED: Bought: "items" is 3' <<<"$output"
! "$1" --plan /dev/null 2>/dev/null
