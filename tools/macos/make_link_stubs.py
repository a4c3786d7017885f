"""Link stubs (.tbd files) for the libraries that the daemon links on a Mac. Their symbols come from lists that know
nothing of our sources, so that a function which Apple does not have fails to link."""

import re
import subprocess
from pathlib import Path

import apple_record

_TARGETS = "x86_64-macos, arm64-macos"

_C_FRAMEWORKS = {
    "CoreFoundation": ("CF*.pas",),
    "CoreGraphics": ("CG*.pas",),
    "SystemConfiguration": ("SC*.pas",),
    "ApplicationServices": ("Processes.pas",),
    "CoreServices": ("GestaltEqu.pas",),
}

_OBJC_LIBRARY = "/usr/lib/libobjc.A.dylib"

# What the compiler itself may call.
_OBJC_RUNTIME = """
_objc_alloc _objc_alloc_init _objc_autorelease _objc_autoreleasePoolPop _objc_autoreleasePoolPush _objc_begin_catch
_objc_end_catch _objc_enumerationMutation _objc_exception_rethrow _objc_exception_throw _objc_getClass _objc_getProperty
_objc_msgSend _objc_msgSendSuper2 _objc_msgSend_stret _objc_opt_class _objc_opt_isKindOfClass _objc_opt_new
_objc_opt_respondsToSelector _objc_opt_self _objc_release _objc_retain _objc_setProperty_atomic
_objc_setProperty_atomic_copy _objc_setProperty_nonatomic _objc_setProperty_nonatomic_copy _objc_sync_enter
_objc_sync_exit _objc_terminate _objc_ehtype_vtable _OBJC_EHTYPE_id ___objc_personality_v0 __objc_empty_cache
""".split()


def _names(names):
    return ", ".join(f"'{name}'" for name in sorted(names))


def _write(path, install_name, symbols, classes=(), reexports=()):
    lines = ["--- !tapi-tbd", "tbd-version: 4", f"targets: [ {_TARGETS} ]", f"install-name: '{install_name}'"]
    if reexports:
        lines += ["reexported-libraries:", f"  - targets: [ {_TARGETS} ]", f"    libraries: [ {_names(reexports)} ]"]
    lines += ["exports:", f"  - targets: [ {_TARGETS} ]", f"    symbols: [ {_names(symbols)} ]"]
    if classes:
        lines.append(f"    objc-classes: [ {_names(classes)} ]")
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_text("\n".join(lines + ["...", ""]))


def _write_framework(sdk, name, symbols, classes=(), reexports=()):
    folder = f"System/Library/Frameworks/{name}.framework"
    _write(sdk / folder / f"{name}.tbd", f"/{folder}/Versions/A/{name}", symbols, classes, reexports)


def _write_frameworks(sdk, packages):
    for name, units in _C_FRAMEWORKS.items():
        record = apple_record.read_c(packages, units)
        symbols = {"_" + symbol for symbol in (*record.functions, *record.variables)}
        if name == "CoreFoundation":
            symbols.add("___CFConstantStringClassReference")  # the class of string literals
        _write_framework(sdk, name, symbols)
    for name in ("Foundation", "AppKit"):
        record = apple_record.read_cocoa(packages, [name.lower()])
        symbols = {"_" + symbol for symbol in record.symbols}
        _write_framework(sdk, name, symbols, record.classes, [_OBJC_LIBRARY] if name == "Foundation" else [])


def _exports(library):
    listing = subprocess.run(["llvm-nm-19", "-D", "--defined-only", "--format=just-symbols", library],
                             check=True, capture_output=True, text=True).stdout
    return {"_" + name.partition("@")[0] for name in listing.split()}


def _curl_functions(folder):
    text = "".join(path.read_text() for path in sorted(folder.glob("*.h")))
    return {"_" + name for name in re.findall(r"^CURL_EXTERN[^;()]*?\b(curl_\w+)\s*\(", text, re.M)}


def write_link_stubs(sdk, packages, llvm, libsystem):
    """`packages`: of the record of Apple's interface; `libsystem`: its stub for the oldest system that we run on."""
    _write_frameworks(sdk, packages)
    libraries = sdk / "usr/lib"
    libraries.mkdir(parents=True, exist_ok=True)
    (libraries / "libSystem.tbd").write_bytes(Path(libsystem).read_bytes())
    _write(libraries / "libobjc.A.tbd", _OBJC_LIBRARY, _OBJC_RUNTIME, ["NSObject"])
    cxx = _exports(llvm / "lib/libc++.so.1") | _exports(llvm / "lib/libc++abi.so.1")
    _write(libraries / "libc++.tbd", "/usr/lib/libc++.1.dylib", cxx)
    _write(libraries / "libcurl.tbd", "/usr/lib/libcurl.4.dylib", _curl_functions(sdk / "usr/include/curl"))
