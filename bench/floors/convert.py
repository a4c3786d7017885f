"""The conversion of a JSON report as a script would do it: both documents, then the event as a property list.

    convert.py REPORT EVENT

Prints the nanoseconds of the whole, the start of the interpreter left out.
"""

import json
import plistlib
import sys
import time

begin = time.perf_counter_ns()
with open(sys.argv[1], encoding="utf-8") as file:
    first, _, second = file.read().partition("\n")
header, body = json.loads(first), json.loads(second)
exception = body.get("exception", {})
event = {
    "event.error_type": exception.get("type", ""),
    "event.error_code": exception.get("signal", ""),
    "event.error_desc": exception.get("subtype", ""),
    "source.device": body.get("modelCode", ""),
    "source.os_version": header.get("os_version", ""),
    "event.dts_end": body.get("captureTime", ""),
    "event.dts_start": body.get("procLaunch", ""),
}
with open(sys.argv[2], "wb") as file:
    plistlib.dump(event, file)
print(time.perf_counter_ns() - begin)
