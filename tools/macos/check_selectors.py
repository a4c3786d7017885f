#!/usr/bin/env python3
"""check_selectors.py APPLE_RECORD OBJECT...: every selector that is sent must be Apple's or be implemented in the same
files; every method that is implemented must be one of Apple's, or be sent. Prints how many were looked at."""

import sys
from pathlib import Path

import apple_record
from mach_o import ObjectFile


def main():
    packages, paths = sys.argv[1], sys.argv[2:]
    objects = [(path, ObjectFile(Path(path).read_bytes())) for path in paths]
    known = apple_record.read_cocoa(packages, ["foundation", "appkit"]).selectors
    sent = {(selector, path) for path, file in objects for selector in file.sent_selectors()}
    defined = {(selector, path) for path, file in objects for selector in file.defined_selectors()}
    all_sent, all_defined = ({selector for selector, _ in pairs} for pairs in (sent, defined))

    unknown = [(pair, "sent, but no method of Apple's or ours") for pair in sent if pair[0] not in known | all_defined]
    unused = [(pair, "implemented, but neither Apple's nor sent") for pair in defined
              if pair[0] not in known | all_sent and not pair[0].startswith(".cxx_")]
    for (selector, path), complaint in sorted(unknown + unused):
        print(f"{path}: selector {selector}: {complaint}", file=sys.stderr)
    print(f"{len(all_sent | all_defined)} selectors")
    sys.exit(bool(unknown or unused) or not all_sent)


if __name__ == "__main__":
    main()
