#!/usr/bin/env python3
"""Checks what zulisim writes for other programs to show: traces and reports.

    pages.py files   ZULISIM PROGRAM    well-formed, whatever bytes the run brings along
    pages.py browser ZULISIM PROGRAM    a browser shows the report; 77 where there is no chromium
"""

import json
import os
import re
import shutil
import subprocess
import sys
import tempfile
import xml.etree.ElementTree as ElementTree

HOSTILE = b"</script><b>\"&'\\\x01\xff\xed\xa0\x80"
SCENARIO = r'''
[[client]]
name = "KALO"
guid = "{00000000-0000-0000-0000-000000000001}"
[[client]]
name = "<i>\"&'\u0001\\]]>"
guid = "{FBF6FCF1-96CF-4E2E-A6A6-1BAB8CBE36B1}"
[[reply]]
client = "<i>\"&'\u0001\\]]>"
status = 0x80000001
private = "3c623e26 ff00"
[[fault]]
operation = "read"
at = 9
lose = true
[[fault]]
operation = "write"
at = "7-8"
errno = "EIO"
'''
COMMAND = ["write:1500", "read:4096", "read:16"]
LOST = ["write:20", "read:20", "close", "open", "connect", "read:20", "read:16"]
STEPS = ["open", "connect", "write:5000"] + COMMAND * 4 + LOST + COMMAND * 60


def run(zulisim, program, folder):
    hostile = os.path.join(folder.encode(), HOSTILE.replace(b"/", b"%"))
    shutil.copy(program, hostile)
    paths = {kind: os.path.join(folder, kind) for kind in ("trace", "report", "scenario")}
    with open(paths["scenario"], "w", encoding="utf-8") as file:
        file.write(SCENARIO)
    subprocess.run([zulisim, "run", "-q", "--scenario", paths["scenario"], "--trace",
                    paths["trace"], "--report", paths["report"], "--", hostile, *STEPS],
                   check=True, stdout=subprocess.DEVNULL, timeout=60)
    return paths


def check_trace(path):
    with open(path, encoding="utf-8") as file:
        events = json.load(file)
    kinds = {(event["ph"], event.get("cat"), event["name"]) for event in events}
    tracks = {event["tid"] for event in events if event["name"] == "thread_name"}
    assert tracks == {1, 2}, tracks
    for expected in [("X", "exchange", "command 0x10, status 0x80000001"),
                     ("X", "operation", "read private data"), ("i", "event", "EMSGSIZE"),
                     ("i", "event", "ENODEV"), ("i", "event", "reconnect")]:
        assert expected in kinds, expected
    # The viewer nests a slice into one that stands before it and reaches as far.
    ends = {}
    for event in events:
        if event["ph"] != "X":
            continue
        end = event["ts"] + event["dur"]
        if event["cat"] == "exchange":
            assert event["ts"] >= ends.get(event["tid"], 0) - 0.002
            ends[event["tid"]] = end
        assert end <= ends.get(event["tid"], end) + 0.002 or event["ts"] >= ends[event["tid"]]


def check_report(path):
    with open(path, encoding="utf-8") as file:
        text = file.read()
    page = ElementTree.fromstring(text)
    tags = {element.tag for element in page.iter()}
    assert not tags & {"script", "link", "img", "iframe", "object"}, tags
    assert not re.search(r"\b(src|onload|onclick|style)=|url\(|@import|https?:", text)
    identifiers = [element.get("id") for element in page.iter() if element.get("id")]
    assert len(identifiers) == len(set(identifiers))
    for link in page.iter("a"):
        assert link.get("href")[0] == "#" and link.get("href")[1:] in identifiers, link.attrib
    shown = "".join(page.itertext())
    for expected in ["reconnected to <i>\"&'\u2401\\]]> as #2", "failed: EIO", "command 0x10",
                     "and 476 more bytes", "3c623e26 ff00", "</script><b>".replace("/", "%")]:
        assert expected in shown, expected
    assert len(list(page.iter("pre"))) > 100 and 'class="fold"' in text


def check_browser(path, folder):
    chromium = shutil.which("chromium")
    if chromium is None:
        print("skipped: there is no chromium; scripts/setup.sh browser installs it")
        sys.exit(77)
    page = os.path.join(folder, "report.html")
    shutil.copy(path, page)
    picture = os.path.join(folder, "report.png")
    subprocess.run([chromium, "--headless", "--no-sandbox", "--disable-gpu", "--disable-quic",
                    "--no-first-run", "--disable-background-networking",
                    "--disable-component-update", "--disable-sync", "--hide-scrollbars",
                    "--user-data-dir=" + os.path.join(folder, "profile"),
                    "--window-size=1280,2000", "--screenshot=" + picture, "file://" + page],
                   check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, timeout=60)
    # A page that shows nothing packs into a few thousand bytes.
    assert os.path.getsize(picture) > 60000, os.path.getsize(picture)


def main():
    mode, zulisim, program = sys.argv[1:]
    with tempfile.TemporaryDirectory() as folder:
        paths = run(zulisim, program, folder)
        if mode == "browser":
            check_browser(paths["report"], folder)
        else:
            check_trace(paths["trace"])
            check_report(paths["report"])


main()
