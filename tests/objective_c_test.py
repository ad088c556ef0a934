"""Compares what a host sends in Objective-C with what it sends for the same calls in C.

    objective_c_test.py HOST COLLECTOR WITH_COLLECTOR
"""
import json
import subprocess
import sys


def sent(language):
    """Returns events in order, then heartbeats, without what differs in any two runs."""
    output = subprocess.run([sys.argv[3], sys.argv[2], "--require-token", "demo-token", "--",
                             sys.argv[1], language], check=True, stdout=subprocess.PIPE).stdout
    events, heartbeats = [], []
    for report in map(json.loads, output.splitlines()):
        for event in report["body"] if report["path"] == "/track" else [report["body"]]:
            for varying in ("time", "session_id"):
                event["properties"].pop(varying, None)
            (events if report["path"] == "/track" else heartbeats).append(json.dumps(
                [event, report["uid"], report["headers"]["lib_version"]], sort_keys=True))
    assert len(events) > 5 and heartbeats, output
    return events + heartbeats


for objects, c in zip(sent("objects"), sent("c"), strict=True):
    assert objects == c, f"{objects}\nin Objective-C is in C:\n{c}"
