#!/usr/bin/env python3
"""Turns the lines "figure: WHAT | TRIED | HELD" of standard input into a table.

  reliability_table.py           prints it
  reliability_table.py DOCUMENT  also puts it, as Markdown, between the document's two marker lines

Ends with 1 when a figure falls short or there is none.
"""

import pathlib
import sys

BEGIN = "<!-- figures: begin -->"
END = "<!-- figures: end -->"


def read_figures(lines):
    figures = []
    for line in lines:
        if line.startswith("figure: "):
            what, tried, held = line.removeprefix("figure: ").rsplit(" | ", 2)
            figures.append((what, int(tried), int(held)))
    return figures


def plain(figures):
    width = max(len(what) for what, _, _ in figures)
    return [f"{what:<{width}}  {tried:>6}  {held:>6}{'' if tried == held else '  SHORT'}" for what, tried, held in figures]


def markdown(figures):
    return ["| what | tried | held |", "|---|---:|---:|", *(f"| {what} | {tried} | {held} |" for what, tried, held in figures)]


def insert(document, figures):
    text = document.read_text()
    before, begin, rest = text.partition(BEGIN)
    _, end, after = rest.partition(END)
    if not begin or not end:
        sys.exit(f"reliability_table.py: no marker lines in {document}")
    document.write_text(before + "\n".join([BEGIN, *markdown(figures), END]) + after)


def main():
    figures = read_figures(line.rstrip("\n") for line in sys.stdin)
    if not figures:
        sys.exit("reliability_table.py: no figures")
    print("\n".join(plain(figures)))
    if len(sys.argv) > 1:
        insert(pathlib.Path(sys.argv[1]), figures)
    sys.exit(any(tried == 0 or tried != held for _, tried, held in figures))


main()
