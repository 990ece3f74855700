"""Says on which systems shared libraries run that stand side by side, as the last part of a wheel's name:

    python3 tools/wheel_tag.py LIBRARY...

"manylinux_2_36_x86_64" (PEP 600) is every system with the C library 2.36 or later; "linux_x86_64" is one that has what is
needed beyond that. Standard error is told what is.
"""

import platform
import re
import subprocess
import sys
from pathlib import Path

# What a wheel may take from any system, of what a library in C++ takes; and by the C library the newest symbols of the
# compiler's libraries that come with it.
C_LIBRARY = {"libc.so.6", "libm.so.6", "libpthread.so.0", "libdl.so.2", "librt.so.1"}
C_LIBRARY |= {"ld-linux-x86-64.so.2", "ld-linux-aarch64.so.1"}
COMPILER = {"libstdc++.so.6", "libgcc_s.so.1"}
NEWEST = {
    (2, 28): {"GLIBCXX": (3, 4, 24), "CXXABI": (1, 3, 11), "GCC": (7, 0, 0)},
    (2, 34): {"GLIBCXX": (3, 4, 29), "CXXABI": (1, 3, 13), "GCC": (12, 0, 0)},
    (2, 36): {"GLIBCXX": (3, 4, 30), "CXXABI": (1, 3, 13), "GCC": (12, 0, 0)},
}

Version = tuple[int, ...]


def needs_of(library: str) -> tuple[set[str], dict[str, Version]]:
    """The libraries that it needs, and the newest version of each kind of symbol."""
    said = subprocess.run(["objdump", "-p", library], capture_output=True, text=True, check=True).stdout
    newest: dict[str, Version] = {}
    for kind, numbers in re.findall(r"^\s+0x\w+ 0x\w+ \d+ ([A-Z]+)_([\d.]+)$", said, re.MULTILINE):
        newest[kind] = max(newest.get(kind, ()), tuple(map(int, numbers.split("."))))
    return set(re.findall(r"^\s+NEEDED\s+(\S+)$", said, re.MULTILINE)), newest


def main(libraries: list[str]) -> None:
    needed: set[str] = set()
    newest: dict[str, Version] = {}
    for library in libraries:
        names, versions = needs_of(library)
        needed |= names
        newest = {kind: max(newest.get(kind, ()), versions.get(kind, ())) for kind in newest.keys() | versions.keys()}
    needed -= {Path(library).name for library in libraries}
    others = needed - C_LIBRARY - COMPILER
    glibc = newest.get("GLIBC", ())[:2]
    fits = [
        policy
        for policy, most in NEWEST.items()
        if policy >= glibc and all(newest.get(kind, ()) <= version for kind, version in most.items())
    ]
    print("needs", ", ".join(sorted(needed)), file=sys.stderr)
    print("of", ", ".join(f"{kind} {'.'.join(map(str, of))}" for kind, of in sorted(newest.items())), file=sys.stderr)
    system = f"manylinux_{fits[0][0]}_{fits[0][1]}" if fits and not others else "linux"
    print(f"{system}_{platform.machine()}")


main(sys.argv[1:])
