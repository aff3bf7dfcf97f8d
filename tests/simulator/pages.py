#!/usr/bin/env python3
"""Checks the traces and reports that zulisim writes.

    pages.py files   ZULISIM PROGRAM    checks that they are well-formed for any bytes of the run
    pages.py browser ZULISIM PROGRAM    checks the report in a browser; exits with 77 without chromium
"""

import difflib
import html.parser
import json
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile

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
CALL = "StartIoEx3:200  General Exception : </script><b>"
COMMAND = ["write:1500", "read:4096", "read:16"]
LOST = ["write:20", "read:20", "close", "open", "connect", "read:20", "read:16"]
STEPS = ["open", "connect", "write:5000", "log:1", "child:20"] + COMMAND * 4 + LOST + COMMAND * 60


def check_trace(text):
    events = json.loads(text)
    kinds = {(event["ph"], event["name"]) for event in events}
    assert {event["tid"] for event in events if event["name"] == "thread_name"} == {1, 2, 1000000000}
    for expected in [("B", "command 0x10"), ("X", "read"),
                     ("i", "EMSGSIZE"), ("i", "ENODEV"), ("i", CALL)]:
        assert expected in kinds, expected
    # The slice of a command begins and ends once, around its operations, and has its status.
    open_since, statuses = {}, set()
    for event in events:
        track = event["tid"]
        if event["ph"] == "B":
            assert track not in open_since, event
            open_since[track] = event["ts"]
        elif event["ph"] == "E":
            assert event["ts"] >= open_since.pop(track), event
            statuses.add(event["args"].get("status"))
        elif event["ph"] == "X" and event["name"] == "write":
            assert event["ts"] >= open_since[track], event
    assert not open_since and "0x80000001" in statuses, (open_since, statuses)


class Outline(html.parser.HTMLParser):
    """Collects the elements of a page and the data in it that a browser does not show."""
    def __init__(self, text):
        super().__init__()
        self.tags, self.data, self.policy, self.identifiers = [], "", "", []
        self.feed(text)
        self.close()

    def handle_starttag(self, tag, attributes):
        self.tags.append(tag)
        values = dict(attributes)
        self.identifiers += [values["id"]] if "id" in values else []
        self.policy += values.get("content", "") if values.get("http-equiv") else ""
        assert not values.keys() & {"src", "href", "style", "onload"}, attributes

    def handle_data(self, data):
        if self.identifiers and self.identifiers[-1] == "data" and not self.data:
            self.data = data


def check_report(text):
    page = Outline(text)
    assert page.tags.count("script") == 2 and "b" not in page.tags and "i" not in page.tags, page.tags
    assert "default-src 'none'" in page.policy, page.policy
    assert not re.search(r"url\(|@import|https?:", text)
    *rows, last = [json.loads(line) for line in page.data.strip().split("\n")]
    head = last["head"]
    assert head["exit status"] == "0" and "--fault write:7-8=EIO" in head["instructions"], head
    operations = [row.get("in") or row.get("out") for row in rows if "log" not in row]
    assert [int(line.split()[0]) for line in operations] == list(range(1, len(operations) + 1))
    # The log line of the failed call is in its place. Each row names the process of the operation.
    failed = [next(iter(row.values())) for row in rows if row["failed"]]
    assert "EMSGSIZE" in failed[0] and failed[1] == CALL and "0x80000001" in failed[2], failed[:3]
    errors = sum("  failed  " in line for line in failed)
    counts = re.findall(r"\d+", re.search(r"failures: (.*)", head["summary"])[1])
    assert sum(map(int, counts)) == errors, (counts, errors)
    assert len({line.split()[2] for line in operations}) == 3, operations  # one is unknown
    assert re.search(r"\n +03f0 .*\n +and 476 more bytes$", next(
        line for line in operations if "1500 bytes" in line and "failed" not in line))


def check_transcript(zulisim, program, folder):
    """Checks times, bytes, processes and log lines in the transcript."""
    shown = subprocess.run([zulisim, "run", "--time", "--bytes", "20", "--log", "--", program, "log",
                            "open", "connect", "write:40", "child:20", "close"],
                           cwd=folder, check=True, capture_output=True, text=True, timeout=60).stderr
    line = re.escape("00000000 10000000 00000000 00000000  ................")
    assert re.match(r" log  a line\n   1  0\.\d{6}   fd 3 ", shown), shown
    assert re.search(rf"write    40 bytes  command 0x10\n +0000  {line}\n +0010 .*\n +and 20 more bytes\n",
                     shown), shown
    assert len(set(re.findall(r"\n +\d+  0\.\d+   (\d+) +fd 3 +KALO", shown))) == 2, shown


def check_show(zulisim, program, folder):
    """Checks that a scenario made from a recording reproduces the recording."""
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
    trace = subprocess.run([zulisim, "show", "before.zul", "--trace", "-"], cwd=folder, check=True,
                           capture_output=True).stdout
    assert all(0 <= event["ts"] < 60e6 for event in json.loads(trace)), trace


class Browser:
    """A headless browser, controlled through pipes on its descriptors 3 and 4."""

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
        return self.call("Runtime.evaluate", expression=script, returnByValue=True,
                         awaitPromise=True)["result"].get("value")


# The number of elements that do not fit into the window, and the row that is selected.
CUT = """[...document.querySelectorAll('body *')].filter(each => each.getBoundingClientRect().right >
innerWidth && !each.closest('table')).length"""
AT = """(at => (at.querySelector('summary') || at).textContent + (at.getBoundingClientRect().top > 40 &&
at.getBoundingClientRect().bottom < innerHeight))(document.querySelector('.here'))"""
MANY = 100000


def check_browser(page):
    chromium = shutil.which("chromium")
    if chromium is None:
        print("SKIPPED: chromium is missing; install it with scripts/setup.sh browser")
        sys.exit(77)
    browser = Browser(chromium, page.parent / "profile")

    def press(key):
        browser.call("Input.dispatchKeyEvent", type="keyDown", key=key)
        return browser.value(AT)

    try:
        for width in (1280, 380):
            browser.show(page, width)
            assert browser.value(CUT) == 0
            assert browser.value("document.documentElement.scrollWidth") <= width
            first = press("n")
            assert "EMSGSIZE" in first and first.endswith(")true"), first
            assert press("n") == CALL + "true"
            assert "EMSGSIZE" in press("p")
            browser.value("document.querySelectorAll('details')[3].open = true")
            browser.value("new Promise(requestAnimationFrame)")
            assert "00000000 10000000" in browser.value("document.querySelector('[open] pre').textContent")
        # The picture of an empty page has only a few thousand bytes.
        picture = browser.call("Page.captureScreenshot", format="png")["data"]
        assert len(picture) > 20000, len(picture)
        # For a long run, the page contains only some rows at a time, and still finds the failures.
        text = page.read_text(encoding="utf-8")
        usual = json.dumps({"out": "a line", "failed": False}) + "\n"
        middle = json.dumps({"log": "in the middle", "failed": True}) + "\n"
        begin = text.index('json">') + len('json">')
        page.write_text(text[:begin] + usual * MANY + middle + usual * MANY + '{"out": "cu', encoding="utf-8")
        browser.show(page, 1280)
        assert press("n") == "in the middletrue"
        assert 0 < browser.value("document.querySelectorAll('summary').length") < 3000
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
