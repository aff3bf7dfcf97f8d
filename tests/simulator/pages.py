#!/usr/bin/env python3
"""Checks what zulisim writes for other programs to show: traces and reports.

    pages.py files   ZULISIM PROGRAM    well-formed, whatever bytes the run brings along
    pages.py browser ZULISIM PROGRAM    a browser shows the report; 77 where there is no chromium
"""

import base64
import difflib
import hashlib
import json
import os
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
    assert not {element.tag for element in page.iter()} & {"link", "img", "iframe"}
    script, = page.iter("script")
    policy, = [each.get("content") for each in page.iter("meta") if each.get("http-equiv")]
    digest = base64.b64encode(hashlib.sha256(script.text.encode()).digest()).decode()
    assert f"script-src 'sha256-{digest}'" in policy, digest
    assert not re.search(r"\b(src|onload|onclick|style)=|url\(|@import|https?:", text)
    identifiers = [element.get("id") for element in page.iter() if element.get("id")]
    assert len(identifiers) == len(set(identifiers))
    assert {link.get("href") for link in page.iter("a")} <= {"#" + each for each in identifiers}
    shown = "".join(page.itertext())
    for expected in ["reconnected to <i>\"&'\u2401\\]]> as #2", "command 0x10 failed: EIO",
                     "write 0x10, 1500 bytes: EIO", "<i>\"&'\u2401\\]]> #2 fd", "exit status0",
                     "--fault write:7-8=EIO", "and 476 more bytes", "3c623e26 ff00", "<%script><b>"]:
        assert expected in shown, expected
    assert len(list(page.iter("pre"))) > 100 and 'class="fold"' in text


def check_transcript(zulisim, program, folder):
    """Times, bytes, processes and the log, each in its place."""
    shown = subprocess.run([zulisim, "run", "--time", "--bytes", "20", "--log", "--", program, "log",
                            "open", "connect", "write:40", "child:20", "close"],
                           cwd=folder, check=True, capture_output=True, text=True, timeout=60).stderr
    line = re.escape("00000000 10000000 00000000 00000000  ................")
    assert re.match(r" log  a line\n   1  0\.\d{6}   fd 3 ", shown), shown
    assert re.search(rf"write    40 bytes  command 0x10\n +0000  {line}\n +0010 .*\n +and 20 more bytes\n",
                     shown), shown
    assert len(set(re.findall(r"\n +\d+  0\.\d+   (\d+) +fd 3 +KALO", shown))) == 2, shown


def check_show(zulisim, program, folder):
    """A scenario made from a recording brings about what was recorded."""
    def recorded(name, *options):
        subprocess.run([zulisim, "record", "-q", "-o", name, "--engine", *options, "--", program,
                        *f"open connect {command * 3} write:30 close open open connect {command}"
                        f" write:30 read:64 {command} write:5000 read:9".split()],
                       cwd=folder, check=True, stdout=subprocess.DEVNULL, timeout=60)
        return re.sub(r'"(started|start_ns|duration_ns|process|thread|note|program)":[^,\n]*', "",
                      (folder / name).read_text(encoding="utf-8"))

    command = "write:30 read:64 read:16 "
    private = "00112233100000008899aabbccddeeff"  # the next request begins with it
    faults = ["--reply", f"kalo:0x10=at:1-2,body:0102,status:-3,private:{private}", "--client",
              "kalo:max=2000", "--lose", "write:4,opens=1,errno=ENOENT", "--fault", "read:9=EIO",
              "--short", "write:3=20"]
    before = recorded("before.zul", *faults)
    subprocess.run([zulisim, "show", "before.zul", "--scenario", "made.toml"], cwd=folder, check=True)
    after = recorded("after.zul", "--scenario", "made.toml")
    assert before == after, "\n".join(difflib.unified_diff(before.split("\n"), after.split("\n")))
    shown = subprocess.run([zulisim, "show", "before.zul"], cwd=folder, check=True,
                           capture_output=True, text=True).stdout
    assert "status 0xfffffffd" in shown and "failed  ENOENT" in shown, shown


class Browser:
    """A headless one, driven through the pipe that it reads from descriptor 3 on."""

    def __init__(self, chromium, profile):
        commands, self.output = os.pipe()
        self.input, answers = os.pipe()
        options = ["headless", "no-sandbox", "disable-gpu", "remote-debugging-pipe", "no-first-run",
                   "disable-background-networking", "disable-component-update", "disable-sync"]
        self.process = subprocess.Popen(
            ["bash", "-c", f'exec 3<&{commands} 4>&{answers}; exec "$@"', "-", chromium,
             f"--user-data-dir={profile}", *("--" + option for option in options)],
            pass_fds=(commands, answers), stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        os.close(commands)
        os.close(answers)
        self.buffer, self.session = b"", {}
        target = self.call("Target.createTarget", url="about:blank")["targetId"]
        session = self.call("Target.attachToTarget", targetId=target, flatten=True)["sessionId"]
        self.session = {"sessionId": session}
        self.call("Page.enable")

    def await_message(self, wanted):
        while True:
            while b"\0" not in self.buffer:
                piece = os.read(self.input, 1 << 20)
                assert piece, "the browser has ended"
                self.buffer += piece
            message, self.buffer = self.buffer.split(b"\0", 1)
            if wanted(json.loads(message)):
                return json.loads(message)

    def call(self, method, **parameters):
        os.write(self.output, json.dumps({"id": 1, "method": method, "params": parameters,
                                          **self.session}).encode() + b"\0")
        return self.await_message(lambda message: message.get("id") == 1)["result"]

    def show(self, page, width):
        self.call("Emulation.setDeviceMetricsOverride", width=width, height=900,
                  deviceScaleFactor=1, mobile=False)
        self.call("Page.navigate", url=f"file://{page}")
        self.await_message(lambda message: message.get("method") == "Page.loadEventFired")

    def value(self, script):
        return self.call("Runtime.evaluate", expression=script, returnByValue=True)["result"]["value"]


# The cells of the diagram that show less than they hold, or stand outside of the window.
CUT = """[...document.querySelectorAll('.d *, .t *')].filter(each => each.scrollWidth >
each.clientWidth + 1 && each.clientWidth || each.getBoundingClientRect().right > innerWidth).length"""
AT = """(at => at.textContent + (at.getBoundingClientRect().top > 40 &&
at.getBoundingClientRect().bottom < innerHeight))(document.querySelector('.here'))"""


def check_browser(page):
    chromium = shutil.which("chromium")
    if chromium is None:
        print("skipped: there is no chromium; scripts/setup.sh browser installs it")
        sys.exit(77)
    browser = Browser(chromium, page.parent / "profile")
    try:
        for width in (1280, 380):
            browser.show(page, width)
            assert browser.value(CUT) == 0
            assert browser.value("document.documentElement.scrollWidth") <= width
            seen = []
            for _ in range(3):
                browser.call("Input.dispatchKeyEvent", type="keyDown", key="n")
                seen.append(browser.value(AT))
            assert seen == ["command 0x10 failed: EMSGSIZEnext failuretrue",
                            "command 0x10 failed: EIOnext failuretrue",
                            "command 0x10 failed: EIOtrue"], seen
        # A page that shows nothing packs into a few thousand bytes.
        picture = browser.call("Page.captureScreenshot", format="png")["data"]
        assert len(picture) > 20000, len(picture)
    finally:
        browser.process.terminate()
        browser.process.wait()


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
            check_transcript(zulisim, program, folder)
            check_show(zulisim, program, folder)


main()
