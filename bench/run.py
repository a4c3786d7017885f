#!/usr/bin/env python3
"""Measures what the daemon costs. `script/bench` builds what it needs, and says where.

    run.py [--quick] [--write PAGE] PROGRAMS

Prints the table, and with --write also puts it into PAGE. --quick takes only the figures that do not depend on the machine's
speed. Ends with 1 when a row falls short.
"""

import argparse
import sys
import time

import table
import waiting
import work
import world as worlds

ROUNDS = 9


def measure(world, quick):
    rows, notes = waiting.quiet(world, ROUNDS, 14.5 if quick else 24.5)
    rows += work.attributes(world) + work.handshakes(world)
    if not quick:
        for part in (waiting.starts, work.passes, work.conversions, work.calls, waiting.crashes):
            print(f"bench: {part.__name__}", file=sys.stderr)
            rows += part(world, ROUNDS)
        print("bench: posting", file=sys.stderr)
        posted, note = work.posting(world, ROUNDS)
        rows += posted
        notes.append(note)
    return rows, notes


def main():
    parser = argparse.ArgumentParser()
    only = parser.add_mutually_exclusive_group()
    only.add_argument("--quick", action="store_true")
    only.add_argument("--write", metavar="PAGE")
    parser.add_argument("programs")
    options = parser.parse_args()
    begin = time.monotonic()
    with worlds.new(options.programs) as world:
        rows, notes = measure(world, options.quick)
    print(table.plain(rows))
    notes.append(f"Medians of {ROUNDS} rounds, {time.monotonic() - begin:.0f} s in all.")
    print("", *notes, sep="\n")
    if options.write:
        table.write_page(options.write, rows, notes)
    short = [row.what for row in rows if not row.holds()]
    if short:
        print("bench: falls short: " + "; ".join(short), file=sys.stderr)
    return 1 if short else 0


if __name__ == "__main__":
    sys.exit(main())
