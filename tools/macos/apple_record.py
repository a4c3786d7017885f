"""An independent record of Apple's programming interface, read from Free Pascal's translation of Apple's headers:
`univint` holds the C frameworks, `cocoaint` Foundation and AppKit."""

import functools
import re
from dataclasses import dataclass, field
from pathlib import Path

_COMMENT = re.compile(r"\(\*.*?\*\)|\{(?!\$).*?\}", re.S)
_FUNCTION = re.compile(
    r"\b(?:function|procedure)\s+\w+\s*(?:\(([^)]*)\))?\s*(?::\s*(\w+))?\s*;[^;]*?external name '_(\w+)'")
_VARIABLE = re.compile(r"\bvar\s+\w+\s*:\s*(\w+)\s*;\s*external name '_(\w+)'")
_CONSTANT = re.compile(
    r"^\s*(\w+)\s*=\s*(?:\w+\()?(\$[0-9A-Fa-f]+|-?\d+|'....')\)?(?:\s+shl\s+(\d+))?\s*;", re.M)
_ALIAS = re.compile(r"^\s*(\w+)\s*=\s*(\^?)\s*(\w+)", re.M)
_CLASS = re.compile(r"^\s*(\w+) = objcclass (?:sealed )?external", re.M)
_COCOA_VARIABLE = re.compile(r"^\s*(\w+)\s*:[^;\n]*?;?\s*cvar;\s*external", re.M)
_COCOA_FUNCTION = re.compile(r"^\s*(?:function|procedure) (\w+).*?cdecl; external", re.M)
_SELECTOR = re.compile(r"message '([^']+)'")

# Pascal's own types, and those that its translation picks by machine: here 64 bits.
_PASCAL = {
    "longint": "i32", "longword": "u32", "smallint": "i16", "word": "u16", "byte": "u8", "shortint": "i8",
    "int64": "i64", "qword": "u64", "double": "f64", "single": "f32", "pointer": "pointer", "pchar": "pointer",
    "signedlong": "i64", "unsignedlong": "u64", "sint8": "i8", "uint8": "u8", "sint16": "i16", "uint16": "u16",
    "sint32": "i32", "uint32": "u32", "sint64": "i64", "uint64": "u64", "boolean": "u8", "fourcharcode": "u32",
    "procedure": "pointer", "function": "pointer",
}


@dataclass
class CRecord:
    functions: dict = field(default_factory=dict)  # name: (result width, [parameter widths])
    variables: dict = field(default_factory=dict)  # name: width
    constants: dict = field(default_factory=dict)  # name: value


@dataclass
class CocoaRecord:
    classes: set = field(default_factory=set)
    symbols: set = field(default_factory=set)  # functions and variables
    selectors: set = field(default_factory=set)


def _read(path):
    return _COMMENT.sub(" ", path.read_text(encoding="latin-1"))


def _width(name, aliases):
    """Of a named type: "i32", "pointer" and so on, or its name when the record does not tell."""
    seen = set()
    while name.lower() not in _PASCAL:
        if name in seen or name not in aliases:
            return name
        seen.add(name)
        pointer, target = aliases[name]
        if pointer:
            return "pointer"
        name = target
    return _PASCAL[name.lower()]


def _parameters(text, aliases):
    widths = []
    for group in filter(None, (part.strip() for part in (text or "").split(";"))):
        names, _, kind = group.partition(":")
        by_reference = not kind or re.match(r"(var|const|out)\s", names)
        width = "pointer" if by_reference else _width(kind.strip(), aliases)
        widths += [width] * (names.count(",") + 1)
    return widths


def _value(text, shift):
    if text[0] == "'":
        return int.from_bytes(text[1:-1].encode("latin-1"), "big")
    number = int(text[1:], 16) if text[0] == "$" else int(text)
    return number << int(shift or 0)


@functools.cache
def _units(packages):
    folder = Path(packages) / "univint" / "src"
    return {path: _read(path) for path in sorted(folder.glob("*.pas"))}


@functools.cache
def _aliases(packages):
    aliases = {}
    for text in _units(packages).values():
        for name, pointer, target in _ALIAS.findall(text):
            aliases.setdefault(name, (pointer, target))
    return aliases


def read_c(packages, patterns=("*.pas",)):
    """The functions, variables and constants of the units whose file names match; types come from all units."""
    units, aliases = _units(packages), _aliases(packages)
    record = CRecord()
    for path, text in units.items():
        if any(path.match(pattern) for pattern in patterns):
            for parameters, result, name in _FUNCTION.findall(text):
                widths = _parameters(parameters, aliases)
                record.functions[name] = (_width(result, aliases) if result else "void", widths)
            record.variables.update({name: _width(kind, aliases) for kind, name in _VARIABLE.findall(text)})
            record.constants.update({name: _value(*value) for name, *value in _CONSTANT.findall(text)})
    return record


def read_cocoa(packages, frameworks):
    record = CocoaRecord()
    for framework in frameworks:
        for path in sorted((Path(packages) / "cocoaint" / "src" / framework).glob("*.inc")):
            text = path.read_text(encoding="latin-1")
            record.classes.update(_CLASS.findall(text))
            record.symbols.update(_COCOA_VARIABLE.findall(text) + _COCOA_FUNCTION.findall(text))
            record.selectors.update(_SELECTOR.findall(text))
    return record
