#!/usr/bin/env python3
"""check_declarations.py APPLE_RECORD SDK: every function, variable and constant that our stub headers for the C
frameworks declare must stand in the record of Apple's interface, functions and variables with the same widths, constants
with the same value. Prints how many were looked at."""

import json
import subprocess
import sys
from pathlib import Path

import apple_record

_STUBS = Path(__file__).resolve().parent / "stubs"
_OBJECTIVE_C = ("AppKit", "Foundation")
_TYPES = {
    "void": "void", "unsigned char": "u8", "signed char": "i8", "char": "i8", "unsigned short": "u16", "short": "i16",
    "unsigned int": "u32", "int": "i32", "unsigned long": "u64", "long": "i64", "unsigned long long": "u64",
    "long long": "i64", "double": "f64", "float": "f32",
}


def parse(sdk):
    """The declarations in the compiler's own words."""
    headers = sorted(path.relative_to(_STUBS) for path in _STUBS.glob("*/*.h") if path.parent.name not in _OBJECTIVE_C)
    command = ["clang-19", "--target=arm64-apple-macos12", "-isysroot", sdk, "-x", "c", "-Wno-four-char-constants",
               "-fsyntax-only", "-Xclang", "-ast-dump=json", "-"]
    source = "".join(f"#include <{header}>\n" for header in headers)
    answer = subprocess.run(command, input=source, stdout=subprocess.PIPE, text=True, check=True)
    return json.loads(answer.stdout)["inner"]


def in_order(node):
    """All objects within one, in the order in which they were printed."""
    if isinstance(node, dict):
        yield node
        for key, child in node.items():
            if key != "includedFrom":
                yield from in_order(child)
    elif isinstance(node, list):
        for child in node:
            yield from in_order(child)


def ours(declarations):
    """Those that stand in our headers. A file is printed only where it differs from the one printed before."""
    file = ""
    for declaration in declarations:
        for part in in_order(declaration.get("loc", {})):
            file = part.get("file", file)
        if Path(file).resolve().is_relative_to(_STUBS):
            yield declaration
        for part in in_order(declaration):
            file = part.get("file", file)


class Reader:
    def __init__(self, declarations):
        self.typedefs = {each["name"]: each["type"] for each in declarations if each["kind"] == "TypedefDecl"}

    def width(self, kind):
        """The C type in the record's terms."""
        text = kind.get("desugaredQualType", kind["qualType"]).replace("const", "").strip()
        if "*" in text:
            return "pointer"
        if text in self.typedefs:
            return self.width(self.typedefs[text])
        return _TYPES.get(text, text)

    def entities(self, declaration):
        """What a declaration declares: pairs of a name and what the record should say of it."""
        kind, name = declaration["kind"], declaration.get("name")
        if kind == "FunctionDecl":
            result = self.width({"qualType": declaration["type"]["qualType"].partition("(")[0]})
            parameters = [part for part in declaration.get("inner", []) if part["kind"] == "ParmVarDecl"]
            yield name, (result, [self.width(parameter["type"]) for parameter in parameters])
        elif kind == "VarDecl":
            yield name, self.width(declaration["type"])
        elif kind == "EnumDecl":
            yield from constants(declaration)


def constants(enumeration):
    value = -1
    for constant in enumeration.get("inner", []):
        if constant["kind"] == "EnumConstantDecl":
            written = [int(node["value"]) for node in in_order(constant) if "value" in node]
            value = written[0] if written else value + 1
            yield constant["name"], value


def main():
    packages, sdk = sys.argv[1:]
    declarations = parse(sdk)
    reader = Reader(declarations)
    apple = apple_record.read_c(packages)
    known = apple.functions | apple.variables | apple.constants
    found = dict(pair for declaration in ours(declarations) for pair in reader.entities(declaration))
    different = {name: ours for name, ours in found.items() if known.get(name) != ours}
    for name, declared in different.items():
        print(f"declared: {name}: {declared}; Apple's: {known.get(name, 'nothing of that name')}", file=sys.stderr)
    print(f"{len(found)} declarations")
    sys.exit(bool(different) or not found)


if __name__ == "__main__":
    main()
