#!/usr/bin/env python3
"""Checks what zulisim writes for other programs to show: traces and reports.

    pages.py files   ZULISIM PROGRAM    well-formed, whatever bytes the run brings along
    pages.py browser ZULISIM PROGRAM    a browser shows the report; 77 where there is no chromium
"""

import json
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import xml.etree.ElementTree as ElementTree

HOSTILE = b"</script><b>\"&'\\\x01\xff\xed\xa0\x80".replace(b"/", b"%")
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
unusual = true
'''
COMMAND = ["write:1500", "read:4096", "read:16"]
LOST = ["write:20", "read:20", "close", "open", "connect", "read:20", "read:16"]
STEPS = ["open", "connect", "write:5000"] + COMMAND * 4 + LOST + COMMAND * 60


def check_trace(text):
    events = json.loads(text)
    kinds = {(event["ph"], event.get("cat"), event["name"]) for event in events}
    assert {event["tid"] for event in events if event["name"] == "thread_name"} == {1, 2}
    for expected in [("X", "exchange", "command 0x10, status 0x80000001"),
                     ("X", "operation", "read private data"), ("i", "event", "EMSGSIZE"),
                     ("i", "event", "ENODEV"), ("i", "event", "reconnect")]:
        assert expected in kinds, expected
    # The viewer nests a slice into one that stands before it and reaches as far.
    ends = {}
    for event in (event for event in events if event["ph"] == "X"):
        end, last = event["ts"] + event["dur"], ends.get(event["tid"], 0)
        behind = event["ts"] >= last - 0.002
        assert behind or event["cat"] != "exchange" and end <= last + 0.002, event
        ends[event["tid"]] = max(end, last)


def check_report(text):
    page = ElementTree.fromstring(text)
    assert not {element.tag for element in page.iter()} & {"script", "link", "img", "iframe"}
    assert not re.search(r"\b(src|onload|onclick|style)=|url\(|@import|https?:", text)
    identifiers = [element.get("id") for element in page.iter() if element.get("id")]
    assert len(identifiers) == len(set(identifiers))
    assert {link.get("href") for link in page.iter("a")} <= {"#" + each for each in identifiers}
    shown = "".join(page.itertext())
    for expected in ["reconnected to <i>\"&'\u2401\\]]> as #2", "failed: EIO", "command 0x10",
                     "and 476 more bytes", "3c623e26 ff00", "<%script><b>"]:
        assert expected in shown, expected
    assert len(list(page.iter("pre"))) > 100 and 'class="fold"' in text


def check_browser(page):
    chromium = shutil.which("chromium")
    if chromium is None:
        print("skipped: there is no chromium; scripts/setup.sh browser installs it")
        sys.exit(77)
    picture = page.with_suffix(".png")
    subprocess.run([chromium, "--headless", "--no-sandbox", "--disable-gpu", "--disable-quic",
                    "--no-first-run", "--disable-background-networking", "--hide-scrollbars",
                    "--disable-component-update", "--disable-sync", "--window-size=1280,2000",
                    f"--user-data-dir={page.parent}/profile", f"--screenshot={picture}",
                    f"file://{page}"],
                   check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, timeout=60)
    # A page that shows nothing packs into a few thousand bytes.
    assert picture.stat().st_size > 60000, picture.stat()


def main():
    mode, zulisim, program = sys.argv[1:]
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        hostile = shutil.copy(program, name.encode() + b"/" + HOSTILE)
        (folder / "scenario").write_text(SCENARIO, encoding="utf-8")
        subprocess.run([zulisim, "run", "-q", "--scenario", "scenario", "--lose", "read:9",
                        "--fault", "write:7-8=EIO", "--trace", "trace", "--report", "report.html",
                        "--", hostile, *STEPS],
                       cwd=name, check=True, stdout=subprocess.DEVNULL, timeout=60)
        if mode == "browser":
            check_browser(folder / "report.html")
        else:
            check_trace((folder / "trace").read_text(encoding="utf-8"))
            check_report((folder / "report.html").read_text(encoding="utf-8"))


main()
