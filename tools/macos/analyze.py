#!/usr/bin/env python3
"""analyze.py BUILD_FOLDER: runs the compiler's static analyzer, retain counts included, over the Objective-C++ sources of
a build, with the flags of that build. Any finding fails. Prints how many sources were analyzed."""

import json
import os
import shlex
import subprocess
import sys
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

_ANALYZE = ["--analyze", "-Xclang", "-analyzer-werror", "-Xclang", "-analyzer-output=text", "-Xclang",
            "-analyzer-checker=core,cplusplus,deadcode,nullability,osx,unix"]


def analyze(entry):
    """What the analyzer complains of; None when it has nothing to say."""
    words = shlex.split(entry["command"])
    output = words.index("-o")
    command = [word for word in words[:output] + words[output + 2:] if word != "-c"] + _ANALYZE
    answer = subprocess.run(command, cwd=entry["directory"], capture_output=True, text=True)
    return answer.stderr if answer.returncode or answer.stderr else None


def main():
    entries = json.loads((Path(sys.argv[1]) / "compile_commands.json").read_text())
    sources = [entry for entry in entries if entry["file"].endswith(".mm")]
    with ThreadPoolExecutor(os.cpu_count()) as pool:
        complaints = [text for text in pool.map(analyze, sources) if text is not None]
    sys.stderr.writelines(complaints)
    print(f"{len(sources)} sources")
    sys.exit(bool(complaints) or not sources)


if __name__ == "__main__":
    main()
