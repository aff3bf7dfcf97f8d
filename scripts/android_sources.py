#!/usr/bin/env python3
"""Checks that the modules of Android.bp have the same sources as CMake's targets.

Android has no libfuse3, so CMake is configured without it.
"""
import json
import pathlib
import re
import subprocess
import sys

MODULES = {
    "libkalodll": ["kalodll"],
    "libzulisim_preload": ["zulisim_preload"],
    "zulisim": ["zulisim", "zulisim_engine", "kalodll_common"],
    "kaloctl": ["kaloctl", "kaloctl_core", "kalodll_common"],
}
ROOT = pathlib.Path(__file__).resolve().parent.parent
BUILD = ROOT / "build" / "android_sources"


def cmake_sources():
    """The sources of each target, relative to the root."""
    subprocess.run(["cmake", "-G", "Ninja", "-S", ROOT, "-B", BUILD, "-DKALODLL_BUILD_TESTS=OFF",
                    "-DKALODLL_BUILD_TOOLS=ON", "-DCMAKE_DISABLE_FIND_PACKAGE_PkgConfig=ON"],
                   check=True, stdout=subprocess.DEVNULL)
    sources = {}
    for each in json.loads((BUILD / "compile_commands.json").read_text()):
        target = re.search(r" -o \S*CMakeFiles/(\w+)\.dir/", each["command"]).group(1)
        path = pathlib.Path(each["file"])
        # Android.bp runs the rules that generate sources by itself.
        if not path.is_relative_to(BUILD):
            sources.setdefault(target, set()).add(str(path.relative_to(ROOT)))
    return sources


def android_sources():
    """The sources of each module, with its patterns expanded."""
    modules = {}
    for block in re.findall(r"^cc_\w+ \{\n(.*?)^\}", (ROOT / "Android.bp").read_text(), re.M | re.S):
        name = re.search(r'name: "(\w+)"', block).group(1)
        listed = re.search(r"\bsrcs: \[(.*?)\]", block, re.S)
        for pattern in re.findall(r'^ *"(.+?)"', listed.group(1), re.M) if listed else []:
            modules.setdefault(name, set()).update(
                str(path.relative_to(ROOT)) for path in ROOT.glob(pattern))
    return modules


def main():
    built, listed = cmake_sources(), android_sources()
    different = set(listed) ^ set(MODULES)
    for name in sorted(different):
        print(f"android_sources.py: Android.bp: unexpected or missing module '{name}'", file=sys.stderr)
    for name, targets in MODULES.items():
        expected = set().union(*(built[target] for target in targets))
        for path in sorted(expected - listed.get(name, set())):
            print(f"android_sources.py: Android.bp: {name}: missing source: {path}", file=sys.stderr)
        for path in sorted(listed.get(name, set()) - expected):
            print(f"android_sources.py: Android.bp: {name}: CMake does not build: {path}", file=sys.stderr)
        different |= expected ^ listed.get(name, set())
    sys.exit(1 if different else 0)


if __name__ == "__main__":
    main()
