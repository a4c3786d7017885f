#!/usr/bin/env python3
"""end_with.py PROGRAM ...: runs it, and when it has ended, however that came about, ends all that came of it and still runs.

Exit status: the program's.
"""

import ctypes
import os
import signal
import subprocess
import sys

PR_SET_CHILD_SUBREAPER = 36  # of <linux/prctl.h>: orphans below this process become its children


def children():
    for entry in filter(str.isdigit, os.listdir("/proc")):
        try:
            with open(f"/proc/{entry}/stat", encoding="utf-8", errors="replace") as file:
                name, _, fields = file.read().rpartition(")")
        except OSError:
            continue  # gone meanwhile
        state, parent = fields.split()[:2]
        if int(parent) == os.getpid() and state != "Z":
            yield int(entry), name.partition("(")[2]


def main():
    ctypes.CDLL(None).prctl(PR_SET_CHILD_SUBREAPER, 1, 0, 0, 0)
    status = subprocess.call(sys.argv[1:])
    while True:
        for child, name in children():
            print(f"left behind and ended: {name}", flush=True)
            os.kill(child, signal.SIGKILL)
        try:
            os.wait()
        except ChildProcessError:
            return 128 - status if status < 0 else status


if __name__ == "__main__":
    sys.exit(main())
