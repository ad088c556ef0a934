#!/usr/bin/env bash
# plan_collected.sh COLLECTOR PLAN HOST: fails unless the collector gets the same bytes from HOST's typed
# and untyped calls, and shows that only its last two events are not as PLAN says: in its readable lines,
# under /violations and by its status.
set -euo pipefail
if [[ ${1:-} == --violations ]]; then
  "$2" --gtest_filter=TypedCalls.ReachACollector
  exec python3 -c 'import json, os, re, urllib.request
def get(path):
    return urllib.request.urlopen(os.environ["VELTRANO_COLLECTOR_PAGE"] + path).read().decode()
violations = json.loads(get("violations"))
assert [event["violations"] for event in violations] == [
    ["Notting: not a planned event"], ["Optional: \"much\" is \"2\"; planned: number"]]
assert violations == [event for event in json.loads(get("events")) if "violations" in event]
events = get("events")
sent = [events[begin.start():json.JSONDecoder().raw_decode(events, begin.start())[1]]
        for begin in re.finditer(r"{\"event\":\"Every Type\"", events)]
assert len(sent) == 3 and len({re.sub(r"\"time\":\d+", "", event) for event in sent}) == 1, sent'
fi
with_collector=$(dirname "${BASH_SOURCE[0]}")/../scripts/with-collector
status=0
output=$("$with_collector" "$1" --format readable --plan "$2" -- "${BASH_SOURCE[0]}" --violations "$3") ||
  status=$?
((status == 3)) || { echo "The status is $status, and not 3: $output" && exit 1; }
grep -q 'event="Notting".*NOT AS PLANNED: Notting: not a planned event' <<<"$output"
! "$1" --plan /dev/null 2>/dev/null
