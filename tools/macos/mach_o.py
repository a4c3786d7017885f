"""What a 64-bit Mach-O object file says of the Objective-C selectors in it."""

import re
import struct
from dataclasses import dataclass

_MAGIC = 0xFEEDFACF
_SEGMENT, _SYMBOL_TABLE = 0x19, 0x2
_METHOD = re.compile(r"[-+]\[\w+(?:\(\w*\))? (\S+)\]$")


@dataclass
class _Section:
    address: int
    data: bytes
    relocations: list  # (offset in the section, symbol number or None)


def _text(data, start):
    return data[start:data.index(b"\0", start)].decode()


def _relocations(image, offset, count):
    for address, word in struct.iter_unpack("<iI", image[offset:offset + 8 * count]):
        yield address, word & 0xFFFFFF if word >> 27 & 1 else None


class ObjectFile:
    def __init__(self, image):
        magic, _, _, _, self._commands, _, _, _ = struct.unpack_from("<8I", image)
        if magic != _MAGIC:
            raise ValueError("not a 64-bit Mach-O file")
        self._image = image
        self._sections = {}
        self._symbols = []  # (name, address)
        self._read_commands()

    def _read_commands(self):
        place = 32
        for _ in range(self._commands):
            command, size = struct.unpack_from("<2I", self._image, place)
            if command == _SEGMENT:
                self._read_sections(place)
            elif command == _SYMBOL_TABLE:
                self._read_symbols(*struct.unpack_from("<4I", self._image, place + 8))
            place += size

    def _read_sections(self, place):
        (count,) = struct.unpack_from("<I", self._image, place + 64)
        for start in range(place + 72, place + 72 + 80 * count, 80):
            name, address, size, offset, relocations, number = struct.unpack_from("<16s16x2QI4x2I", self._image, start)
            data = self._image[offset:offset + size]
            found = list(_relocations(self._image, relocations, number))
            self._sections[name.rstrip(b"\0").decode()] = _Section(address, data, found)

    def _read_symbols(self, offset, count, names, _size):
        for start in range(offset, offset + 16 * count, 16):
            name, _, _, _, address = struct.unpack_from("<IBBHQ", self._image, start)
            self._symbols.append((_text(self._image, names + name), address))

    def sent_selectors(self):
        """Those that messages, or @selector, refer to."""
        references, names = self._sections.get("__objc_selrefs"), self._sections.get("__objc_methname")
        for offset, symbol in references.relocations if references else ():
            (address,) = struct.unpack_from("<Q", references.data, offset)
            if symbol is not None:
                address += self._symbols[symbol][1]
            yield _text(names.data, address - names.address)

    def defined_selectors(self):
        """Those of the methods that the file implements."""
        for name, _ in self._symbols:
            if match := _METHOD.match(name):
                yield match[1]
