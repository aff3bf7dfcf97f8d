#!/usr/bin/env python3
"""Reads callgrind's counts and compares them with bench/instructions.txt.

  instructions.py read FOLDER                 prints operation and instructions
  instructions.py compare COUNTS EXPECTED     exits with status 1 if an operation costs too much
  instructions.py update COUNTS EXPECTED      records the new counts; keeps limits and comments
"""
import pathlib
import re
import sys

COUNTED_RUNS = 10  # the same as in bench/counted.h
GROWTH = 1.03


def read_counts(folder):
    totals = {}
    for path in sorted(pathlib.Path(folder).glob("out.*"), key=lambda p: int(p.suffix[1:])):
        text = path.read_text()
        name = re.search(r"^desc: Trigger: Client Request: (\S+)", text, re.M)
        total = re.search(r"^(?:totals|summary): (\d+)", text, re.M)
        if name and total:
            totals[name[1]] = int(total[1])
    nothing = totals.pop("nothing", None)
    if nothing is None or not totals:
        sys.exit(f"instructions.py: no counts in '{folder}'; check the output of valgrind")
    return {name: round((total - nothing) / COUNTED_RUNS) for name, total in totals.items()}


def load_counts(path):
    return {name: int(count) for name, count in
            (line.split() for line in pathlib.Path(path).read_text().splitlines())}


def limit_of(text, counts):
    """Returns the limit. `text` is a number, or a factor of an operation: 1.2*registry_100_keys_stdio."""
    if text is None:
        return None
    factor, _, operation = text.partition("*")
    return float(factor) * (counts[operation] if operation else 1)


def expected_rows(path):
    for line in pathlib.Path(path).read_text().splitlines():
        words = line.split("#")[0].split()
        if words:
            yield words[0], int(words[1]), words[2] if len(words) > 2 else None


def verdict_of(name, count, expected, limit):
    if count > expected * GROWTH:
        return f"GREW by {100 * (count / expected - 1):.1f} %: more than 3 %"
    if limit is not None and count > limit:
        return f"ABOVE the limit of {limit:.0f}"
    if count * GROWTH < expected:
        return "fell; record it with scripts/instructions.sh --update"
    return "ok"


def compare(counts, path):
    failed = []
    rows = list(expected_rows(path))
    print(f"{'operation':28}{'counted':>12}{'expected':>12}{'limit':>12}  verdict")
    for name, expected, limit_text in rows:
        if name not in counts:
            failed.append(f"{name} is in {path} but was not counted")
            continue
        limit = limit_of(limit_text, counts)
        verdict = verdict_of(name, counts[name], expected, limit)
        shown = "" if limit is None else f"{limit:.0f}"
        print(f"{name:28}{counts[name]:12}{expected:12}{shown:>12}  {verdict}")
        if verdict[0].isupper():
            failed.append(f"{name}: {counts[name]} instructions, expected {expected}; {verdict}")
    for name in counts.keys() - {row[0] for row in rows}:
        failed.append(f"{name} is not in {path}: add it")
    return failed


def update(counts, path):
    def renewed(line):
        name = line.split("#")[0].split()[:1]
        if not name or name[0] not in counts:
            return line
        return re.sub(r"^(\S+\s+)\d+", lambda match: f"{match[1]}{counts[name[0]]}", line)
    lines = pathlib.Path(path).read_text().splitlines()
    pathlib.Path(path).write_text("".join(renewed(line) + "\n" for line in lines))


def main(arguments):
    if len(arguments) == 2 and arguments[0] == "read":
        for name, count in read_counts(arguments[1]).items():
            print(name, count)
    elif len(arguments) == 3 and arguments[0] == "compare":
        failed = compare(load_counts(arguments[1]), arguments[2])
        for failure in failed:
            print(f"instructions.py: {failure}", file=sys.stderr)
        sys.exit(1 if failed else 0)
    elif len(arguments) == 3 and arguments[0] == "update":
        update(load_counts(arguments[1]), arguments[2])
    else:
        sys.exit(__doc__)


if __name__ == "__main__":
    main(sys.argv[1:])
