#!/usr/bin/env python3
"""Plants faults in the library's sources, one at a time, and names those that no test notices.

  scripts/mutate.py [--seed N] [--count N] [--sanitizers] [FOLDER...]

Draws the same number of faults from each FOLDER: api, transport, log and oscl by default; common,
simulator and tools run only their own tests. Builds each fault in a copy of the tree under
build/mutate and runs the release tests. With --sanitizers, a fault that these do not notice is
tested again under the address and the thread sanitizer. A test that times out counts as failed. A
fault that does not compile is replaced by another one. tests/equivalent_mutants.txt lists faults
that do not change the behaviour, with the reason; the script never draws them.
Exits with 1 if a fault survives.
"""

import argparse
import difflib
import os
import pathlib
import random
import re
import shutil
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
WORK = ROOT / "build" / "mutate"
TREE = WORK / "tree"
EQUIVALENT = ROOT / "tests" / "equivalent_mutants.txt"
FOLDERS = ["api", "transport", "log", "oscl"]
BENCH = ["common", "simulator", "tools"]
TESTS = ["api", "transport", "log", "oscl", "robustness", "simulator"]
TESTS_OF_BENCH = ["simulator", "tools"]
# A slow test of half a million paths, most of which other tests cover, and tests of other folders.
LEFT_OUT = "negative_with_private_data|pages_|machine|_device$"
LEFT_OUT_OF_BENCH = "pages_browser"

WORDS = [(r" < ", " <= "), (r" <= ", " < "), (r" > ", " >= "), (r" >= ", " > "), (r" == ", " != "),
         (r" != ", " == "), (r" && ", " || "), (r" \|\| ", " && "), (r" \+ ", " - "),
         (r" - ", " + "), (r"\+\+", "--"), (r"--", "++"), (r" \+ 1\b", ""), (r" - 1\b", ""),
         (r" & ", " | "), (r" \| ", " & "), (r"\+= ", "-= "), (r"\btrue\b", "false"),
         (r"\bfalse\b", "true"), (r"!(?=[\w(])", ""), (r" \? (.+?) : (.+?)([;,)])", r" ? \2 : \1\3"),
         (r"\bif \((.*)\) ", r"if (!(\1)) "), (r"\bwhile \((.*)\) ", r"while (!(\1)) "),
         (r"\bbreak;", "continue;"), (r"\bcontinue;", "break;"), (r"KALO_DLL_STATUS_SUCCESS\b", "KALO_DLL_STATUS_FAILURE"),
         (r"return (?!KALO_DLL_STATUS_SUCCESS|S_OK|nullptr|0;|true|false|\{\}|\*this)(.+);", "return {};"),
         (r'"([^"\\%]+)"', r'"\1?"')]
STATEMENT = re.compile(r"^ +(?!return\b|else\b|case\b|using\b|default\b|friend\b|void |static_assert)"
                       r"[\w*(+:~!-][^{}]*(?<!= delete)(?<!= default);$")


def number(match):
    text = match.group(0)
    value = int(text, 16 if text[:2] in ("0x", "0X") else 10)
    return hex(value + 1) if text[:2] == "0x" else str(value + 1)


def code_lines(path):
    """Yields (index, line) for each line of code in a source file."""
    comment = False
    # Help texts are not code: empty their lines, but keep the line numbers.
    content = re.sub(r'R"\(.*?\)"', lambda text: "\n" * text.group(0).count("\n"), path.read_text(),
                     flags=re.DOTALL)
    for index, line in enumerate(content.split("\n")):
        text = line.strip()
        comment = comment or text.startswith("/*")
        skipped = comment or not text or text.startswith(("//", "#", "*", "static_assert", "namespace"))
        if "*/" in text:
            comment = False
        if not skipped:
            yield index, re.sub(r" (//|/\*).*", "", line).rstrip()


def faults(path):
    """Yields the faults of a file: (index of the first line, lines before, lines after)."""
    lines = list(code_lines(path))
    for place, (index, line) in enumerate(lines):
        code = re.sub(r'"[^"]*"', lambda text: "~" * len(text.group(0)), line)
        for pattern, replacement in WORDS:
            where = line if pattern.startswith('"') else code
            for found in re.finditer(pattern, where):
                if match := re.compile(pattern).match(line, found.start()):
                    new = line[:match.start()] + match.expand(replacement) + line[match.end():]
                    yield index, [line], [new]
        for match in re.finditer(r"(?<![\w.])(0[xX][0-9a-fA-F]+|\d+)(?![\w.])", code):
            yield index, [line], [line[:match.start()] + number(match) + line[match.end():]]
        if not place or not STATEMENT.match(line) or not lines[place - 1][1].endswith((";", "{", "}", ":")):
            continue
        yield index, [line], [re.match(" *", line).group(0) + ";"]
        after = lines[place + 1] if place + 1 < len(lines) else (0, "")
        acts = all("(" in text or " = " in text for text in (line, after[1]))
        if acts and after[0] == index + 1 and STATEMENT.match(after[1]):
            yield index, [line, after[1]], [after[1], line]


def equivalent():
    known = set()
    for line in EQUIVALENT.read_text().splitlines() if EQUIVALENT.exists() else []:
        if line and not line.startswith("#"):
            known.add(tuple(part.strip() for part in line.split(" => ")[:3]))
    return known


def key(path, before, after):
    return (str(path), " / ".join(line.strip() for line in before),
            " / ".join(line.strip() for line in after))


def run(command, seconds, **options):
    try:
        return subprocess.run(command, timeout=seconds, stdout=subprocess.DEVNULL,
                              stderr=subprocess.DEVNULL, check=False, **options).returncode
    except subprocess.TimeoutExpired:
        return -1


def tests_of(folder):
    return TESTS_OF_BENCH if folder in BENCH else TESTS


def build(name, folder=""):
    targets = [f"tests/{tests}/all" for tests in tests_of(folder)]
    return run(["ninja", "-C", str(WORK / name), "zulisim", "kaloctl", *targets], 1800)


def caught(name, folder=""):
    """Returns whether a test of this build fails. Runs the tests of the fault's folder first."""
    seconds = "120" if name == "release" else "600"
    left_out = LEFT_OUT_OF_BENCH if folder in BENCH else LEFT_OUT
    return any(run(["ctest", "--test-dir", str(WORK / name / "tests" / tests), "-E", left_out, "-j2",
                    "-LE", "slow", "--timeout", seconds, "--stop-on-failure"], 1800) != 0
               for tests in sorted(tests_of(folder), key=lambda tests: tests != folder))


def prepare(names, folders):
    TREE.mkdir(parents=True, exist_ok=True)
    listed = subprocess.run(["git", "ls-files", "-co", "--exclude-standard"], cwd=ROOT, check=True,
                            capture_output=True, text=True).stdout.split("\n")
    for name in filter(None, listed):
        source, copy = ROOT / name, TREE / name
        if not source.is_file():
            continue
        if not copy.exists() or copy.read_bytes() != source.read_bytes():
            copy.parent.mkdir(parents=True, exist_ok=True)
            shutil.copy(source, copy)
    kinds = {"release": [], "asan": ["-DKALODLL_SANITIZE=address,undefined"],
             "tsan": ["-DKALODLL_SANITIZE=thread"]}
    for name in names:
        # Tests are not linked again if only the library has changed.
        flags = ["-DCMAKE_BUILD_TYPE=" + ("Release" if name == "release" else "Debug"),
                 "-DCMAKE_LINK_DEPENDS_NO_SHARED=ON", *kinds[name]]
        if (run(["cmake", "-S", TREE, "-B", WORK / name, "-G", "Ninja", *flags], 600) or
                any(build(name, folder) for folder in folders)):
            sys.exit(f"mutate.py: the tree itself does not build: ninja -C {WORK / name}")
        if any(caught(name, folder) for folder in {folders[0], folders[-1]}):
            sys.exit(f"mutate.py: the tests fail without a fault: ctest --test-dir {WORK / name}")


def noticing_build(path, fault, names):
    """Returns the build that notices the fault, None if none does, "" if it does not compile."""
    index, before, after = fault
    original = (ROOT / path).read_text()
    lines = original.split("\n")
    lines[index:index + len(before)] = after
    try:
        for name in names:
            (TREE / path).write_text("\n".join(lines))
            if build(name, path.parts[0]):
                return ""
            if caught(name, path.parts[0]):
                return name
        return None
    finally:
        (TREE / path).write_text(original)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawTextHelpFormatter)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--count", type=int, default=200, help="faults to plant (default: 200)")
    parser.add_argument("--sanitizers", action="store_true")
    parser.add_argument("folders", nargs="*", metavar="FOLDER", default=FOLDERS)
    arguments = parser.parse_args()
    if wrong := [folder for folder in arguments.folders if folder not in FOLDERS + BENCH]:
        parser.error(f"'{wrong[0]}' is not a source folder; expected one of: {', '.join(FOLDERS + BENCH)}")
    names = ["release"] + (["asan", "tsan"] if arguments.sanitizers else [])
    os.nice(5)
    prepare(names, arguments.folders)
    known, draw = equivalent(), random.Random(arguments.seed)
    survivors, score = [], {folder: [0, 0] for folder in arguments.folders}
    for turn, folder in enumerate(arguments.folders):
        all_faults = [(path.relative_to(ROOT), fault)
                      for path in sorted((ROOT / folder).rglob("*")) if path.suffix in (".cpp", ".h")
                      for fault in faults(path)]
        all_faults = [(path, fault) for path, fault in all_faults
                      if key(path, *fault[1:]) not in known]
        draw.shuffle(all_faults)
        due = len(range(turn, arguments.count, len(arguments.folders)))
        while all_faults and score[folder][1] < due:
            path, fault = all_faults.pop()
            verdict = noticing_build(path, fault, names)
            if verdict == "":
                continue
            score[folder][1] += 1
            score[folder][0] += verdict is not None
            print(f"{folder} {score[folder][1]}/{due}: {path}:{fault[0] + 1} {verdict or 'SURVIVES'}",
                  flush=True)
            if verdict is None:
                survivors.append((path, fault))
                print("\n".join(f"  {line}" for line in difflib.ndiff(*fault[1:])
                                if line[0] in "+-"), flush=True)
    print(f"\nseed {arguments.seed}, {len(survivors)} survivors:")
    for path, fault in survivors:
        print("  " + " => ".join(key(path, *fault[1:])) + f"    (line {fault[0] + 1})")
    for folder, (found, planted) in score.items():
        print(f"{folder:10} {found} of {planted} caught, {100 * found // max(planted, 1)} %")
    return 1 if survivors else 0


if __name__ == "__main__":
    sys.exit(main())
