#!/usr/bin/env python3
"""make_sdk.py DARWIN_LIBC APPLE_RECORD SDK: puts together a folder that looks to the compiler like a macOS SDK.

DARWIN_LIBC holds the headers of macOS' C library and its link stub, APPLE_RECORD the folders univint and cocoaint, SDK
is the folder to make; its name starts with "MacOSX". The C++ library, GNUstep, libcurl and Boost are this machine's."""

import shutil
import sys
from pathlib import Path

from make_link_stubs import write_link_stubs

_LLVM = Path("/usr/lib/llvm-19")
_GNUSTEP = Path("/usr/include/GNUstep")
_CURL = Path("/usr/include/x86_64-linux-gnu/curl")
_BOOST = Path("/usr/include/boost")
_STUBS = Path(__file__).resolve().parent / "stubs"

# The first that has a header wins.
_LIBC_FOLDERS = ("any-macos-any", "any-macos.12-any", "aarch64-macos.12-none", "x86_64-macos.12-none")

# GNUstep's Foundation declares what these would.
_SHADOWED = ("objc/NSObject.h", "objc/encoding.h")


def copy_libc(libc, include):
    for folder in reversed(_LIBC_FOLDERS):
        shutil.copytree(libc / "include" / folder, include, dirs_exist_ok=True)
    for header in _SHADOWED:
        (include / header).write_text("#pragma once\n")


def copy_cxx_library(include):
    """With the availability of each feature switched on: what macOS 12 lacks is then an error."""
    target = include / "c++/v1"
    shutil.copytree(_LLVM / "include/c++/v1", target)
    site = target / "__config_site"
    text = site.read_text()
    switch = "#define _LIBCPP_HAS_NO_VENDOR_AVAILABILITY_ANNOTATIONS\n"
    if switch not in text:
        sys.exit(f"make_sdk.py: {site} has no line {switch.strip()}")
    site.write_text(text.replace(switch, ""))


def link_others(sdk, include):
    (include / "boost").symlink_to(_BOOST)
    (include / "curl").symlink_to(_CURL)
    for folder in ("GNUstepBase", "GNUstepGUI"):
        (include / folder).symlink_to(_GNUSTEP / folder)
    for name in ("Foundation", "AppKit"):
        framework = sdk / "System/Library/Frameworks" / f"{name}.framework"
        framework.mkdir(parents=True)
        (framework / "Headers").symlink_to(_GNUSTEP / name)
    for folder in _STUBS.iterdir():
        (include / folder.name).symlink_to(folder)


def main():
    libc, packages, sdk = (Path(argument).resolve() for argument in sys.argv[1:])
    shutil.rmtree(sdk, ignore_errors=True)
    include = sdk / "usr/include"
    copy_libc(libc, include)
    copy_cxx_library(include)
    link_others(sdk, include)
    write_link_stubs(sdk, packages, _LLVM, libc / "darwin/libSystem.12.tbd")


if __name__ == "__main__":
    main()
