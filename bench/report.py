#!/usr/bin/env python3
"""Prints the table of scripts/bench.sh from the folder of its results.

  report.py FOLDER [--svg FILE]

Each row has a figure of the library, the figure that it is compared with, their ratio, and the goal.
"""
import argparse
import json
import pathlib

PARTS = [  # the parts of a command's time, with the kernel's part first
    ("write(2), five lines", "#7a8ba3"),
    ("device, write and read", "#33475b"),
    ("file sinks: insert and flush", "#4f9d8f"),
    ("messages: build and end", "#e0a458"),
    ("entry point and session", "#c8553d"),
]


class Results:
    def __init__(self, folder):
        self.folder = pathlib.Path(folder)
        self.times = {}
        for path in self.folder.glob("*.json"):
            for run in json.loads(path.read_text())["benchmarks"]:
                if run.get("aggregate_name") == "median":
                    name = run["run_name"]
                    if path.stem == "preload":
                        name = name.replace("device/", "preload/")
                    # Runs with several threads are measured in wall-clock time, and so are runs on a
                    # served device, because they mostly happen in another process.
                    kind = "real_time" if "real_time" in name else "cpu_time"
                    self.times[name] = run[kind]
        # The file "instructions" has more columns than these two.
        self.counts = {}
        for name in ("instructions", "peers"):
            for line in self._text(name).splitlines():
                words = line.split()
                if len(words) > 1 and words[1].isdigit():
                    self.counts[words[0]] = int(words[1])
        self.size = int(self._text("size"))
        self.relocations = int(self._text("relocations"))
        self.loads = [line.split() for line in self._text("load").splitlines()]

    def _text(self, name):
        return (self.folder / name).read_text()


def print_row(what, figure, against, other, goal=None, unit=""):
    """Prints one row. The goal is the largest acceptable ratio."""
    ratio = figure / other
    verdict = "" if goal is None else f"<= {goal:g}  {'met' if ratio <= goal else 'MISSED'}"
    line = f"{what:42}{figure:>12,.{digits(figure)}f} {unit:3} {against:38}"
    print((line + f"{other:>12,.{digits(other)}f}{ratio:9.2f}  {verdict}").rstrip())


def digits(figure):
    return 1 if figure < 100 and figure != int(figure) else 0


def print_title(title):
    print(f"\n{title}\n{'operation':42}{'figure':>12}     {'against':38}{'its figure':>12}{'ratio':>9}"
          "  goal")


def print_instructions(counts):
    print_title("Instructions (user space)")
    rows = [
        ("trace statement above the threshold", "trace_statement", "limit", 8, 1),
        ("", "trace_statement", "glog VLOG", "glog_filtered", None),
        ("", "trace_statement", "spdlog debug", "spdlog_filtered", None),
        ("command, no sink", "command_no_sink", "limit", 800, 1),
        ("", "command_no_sink", "TPM 2 device transport, exchange", "tpm_exchange", None),
        ("the same with StartIoEx", "start_io_ex_no_sink", "command, no sink", "command_no_sink",
         1.15),
        ("command, one file sink", "command_one_sink", "limit", 4300, 1),
        ("", "command_one_sink", "spdlog, five flushed lines", "spdlog_five_lines", None),
        ("", "command_one_sink", "glog, five flushed lines", "glog_five_lines", None),
        ("", "command_one_sink", "five stringstreams, not written", "five_stringstreams", None),
        ("second handle: KaloInit3, KaloCleanup3", "second_handle", "its eleven lines, two sinks",
         "second_handle_lines", 3),
        ("RegGetValue, 100 keys", "registry_100_keys", "bare stdio reads, twice",
         "registry_100_keys_stdio", 0.12),
        ("RegSetValueEx, 100 keys", "registry_set_100_keys", "RegGetValue, 100 keys",
         "registry_100_keys", 1.5),
        ("RegGetValue, 10,000 keys", "registry_10000_keys", "RegGetValue, 100 keys",
         "registry_100_keys", 105),
    ]
    for what, name, against, other, goal in rows:
        other = counts[other] if isinstance(other, str) else other
        print_row(what, counts[name], against, other, goal)


def print_times(times):
    print_title("Time (nanoseconds)")
    rows = [
        ("command, no sink", "bare/command", "TPM 2 device transport, exchange", "bare/tpm", 0.8),
        ("line, written and flushed", "line/kalodll", "spdlog", "line/spdlog", 0.9),
        ("", "line/kalodll", "glog", "line/glog", 0.5),
        ("", "line/kalodll", "bare write(2)", "line/write", None),
    ]
    goals = {1: 1.2}
    for sinks in (1, 8, 64):
        rows.append((f"command, {sinks} file sink{'s' * (sinks > 1)}", f"command/{sinks}",
                     "the same system calls by hand", f"loop/{sinks}", goals.get(sinks)))
    for threads in (2, 4):
        name = f"1/real_time/threads:{threads}"
        rows.append((f"command, one sink, {threads} threads",
                     f"parallel/command/{name}", "the same by hand, no lock",
                     f"parallel/loop/{name}", None))
    if "device/command/1/real_time" in times:
        rows.append(("command, one sink, the kernel's /dev/zuli", "device/command/1/real_time",
                     "the same system calls by hand", "device/loop/1/real_time", 1.05))
        rows.append(("five lines and an exchange, zulisim run", "preload/loop/1/real_time",
                     "on the kernel's /dev/zuli, or FUSE's", "device/loop/1/real_time", 1.0))
    for what, name, against, other, goal in rows:
        print_row(what, times[name], against, times[other], goal)
    if "device/command/1/real_time" not in times:
        print("command, one sink, the kernel's /dev/zuli     skipped: there is no /dev/zuli")


def print_start(results):
    print_title("Size and start")
    print_row("stripped size", results.size, "limit in bytes", 1200000, 1)
    path, time, resident, dirty = results.loads[0]
    for other, other_time, _, _ in results.loads[1:]:
        print_row("dlopen" if other == results.loads[1][0] else "", float(time),
                  pathlib.Path(other).name, float(other_time), unit="us")
    print(f"relocations {results.relocations:,}; resident after load {resident} KiB, "
          f"including {dirty} KiB private and written")


def parts_of(times):
    exchange = times["part/exchange/0"]
    writes = times["loop/1"] - exchange
    dropped = times["part/lines_dropped"]
    lines = times["part/lines"]
    entry = times["command/1"] - lines - exchange
    # The entry point's share is about as large as the noise, so it may be negative.
    return [writes, exchange, lines - dropped - writes, dropped, max(entry, 0)]


def draw_bar(y, title, parts, scale):
    shapes = [f'<text x="10" y="{y + 22}">{title}</text>']
    x = 170.0
    for (_, colour), part in zip(PARTS, parts):
        width = part * scale
        shapes.append(f'<rect x="{x:.1f}" y="{y}" width="{width:.1f}" height="34" fill="{colour}"/>')
        if width > 44:
            shapes.append(f'<text x="{x + width / 2:.1f}" y="{y + 22}" text-anchor="middle" '
                          f'fill="#fff">{part:,.0f}</text>')
        x += width
    shapes.append(f'<text x="{x + 8:.1f}" y="{y + 22}">{sum(parts):,.0f} ns</text>')
    return shapes


def draw(times, path):
    parts = parts_of(times)
    scale = 480 / sum(parts)
    shapes = draw_bar(20, "a command, one sink", parts, scale)
    shapes += draw_bar(70, "its calls by hand", parts[:2], scale)
    for index, (label, colour) in enumerate(PARTS):
        y = 134 + 22 * index
        shapes.append(f'<rect x="170" y="{y - 11}" width="13" height="13" fill="{colour}"/>')
        shapes.append(f'<text x="192" y="{y}">{label}: {parts[index]:,.0f} ns</text>')
    pathlib.Path(path).write_text(
        '<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 760 240" '
        'font-family="sans-serif" font-size="13" fill="#222">\n'
        '<title>Where the time of a command goes</title>\n'
        '<rect width="760" height="240" fill="#fff"/>\n' + "\n".join(shapes) + "\n</svg>\n")


def main():
    parser = argparse.ArgumentParser(usage="report.py FOLDER [--svg FILE]")
    parser.add_argument("folder")
    parser.add_argument("--svg")
    arguments = parser.parse_args()
    results = Results(arguments.folder)
    print_instructions(results.counts)
    print_times(results.times)
    print_start(results)
    if arguments.svg:
        draw(results.times, arguments.svg)


if __name__ == "__main__":
    main()
