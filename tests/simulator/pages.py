#!/usr/bin/env python3
"""Checks the traces and reports that zulisim writes.

    pages.py files   ZULISIM PROGRAM    checks that they are well-formed for any bytes of the run
    pages.py browser ZULISIM PROGRAM    checks the report in a browser; exits with 77 without chromium
"""

import html
import json
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile

HOSTILE = b"</script><b>\"&'\\\x01\xff\xed\xa0\x80".replace(b"/", b"%")
SCENARIO = r'''
client = [{ name = "KALO", guid = "{00000000-0000-0000-0000-000000000001}" },
  { name = "<i>\"&'\u0001\\]]>", guid = "{FBF6FCF1-96CF-4E2E-A6A6-1BAB8CBE36B1}" }]
reply = [{ client = "<i>\"&'\u0001\\]]>", status = 0x80000001, private = "3c623e26 ff00", unusual = true }]
'''
CALL = "StartIoEx3:200  General Exception : </script><b>"
COMMAND = ["write:1500", "read:4096", "read:16"]
LOST = ["write:20", "read:20", "close", "open", "connect", "read:20", "read:16"]
STEPS = ["open", "connect", "write:5000", "log:1", "child:20"] + COMMAND * 4 + LOST + COMMAND * 110 + ["write:20"]


def check_trace(text):
    events = json.loads(text)
    assert {event["tid"] for event in events if event["name"] == "thread_name"} == {1, 2, 1000000000}
    assert {"EMSGSIZE", "ENODEV", CALL} <= {event["name"] for event in events if event["ph"] == "i"}
    # The slice of each command begins and ends once.
    for connection in (1, 2):
        phases = "".join(event["ph"] for event in events if event["tid"] == connection)
        assert set(re.sub("[^BE]", "", phases).split("BE")) == {""}, phases


def split(page):
    """Returns the text before the rows of a report, the rows, and the text after them."""
    return re.fullmatch('(.*?json">)(.*?)(</script>.*)', page, re.DOTALL).groups()


def check_report(text):
    assert text.count("<script") == 2 and "default-src 'none'" in text
    assert not re.search(r"<[bi]>|url\(|@import|https?:|\b(src|href|style|onload)=", text)
    *rows, last = [json.loads(line) for line in split(text)[1].strip().split("\n")]
    head = last["head"]
    assert head["exit status"] == "0" and "--fault write:7-8=EIO" in head["instructions"], head
    operations = [row.get("in") or row.get("out") for row in rows if "log" not in row]
    assert [int(line.split()[0]) for line in operations] == list(range(1, len(operations) + 1))
    # The log line of the failed call is in its place. Each row names the process of the operation.
    failed = [next(iter(row.values())) for row in rows if row["failed"]]
    assert "EMSGSIZE" in failed[0] and failed[1] == CALL and "0x80000001" in failed[2], failed[:3]
    assert len({line.split()[2] for line in operations}) == 3, operations  # one is unknown
    assert any(re.search(r"\n +03f0 .*\n +and 476 more bytes$", line) for line in operations)


# Sends the results of a page to the page around it. A row that is marked must be in the window.
PROBE = r"""<script>addEventListener('load', async () => {
  const results = [], links = document.querySelectorAll('li a');
  for (const key of 'pnlp') {
    if (key === 'l') (links[1] || links[0]).click();
    else dispatchEvent(new KeyboardEvent('keydown', {key}));
    const here = document.querySelector('.here'), {top, bottom} = here.getBoundingClientRect();
    results.push((top > 40 && bottom < innerHeight ? '' : 'out of sight: ') +
      (here.querySelector('summary') || here).textContent);
  }
  document.querySelectorAll('details')[3].open = true;
  await new Promise(requestAnimationFrame);
  const opened = document.querySelector('[open] pre');
  results.push(opened && opened.textContent, document.querySelectorAll('summary').length,
    document.querySelectorAll('li').length + document.querySelector('ol').nextSibling.textContent +
      document.querySelector('dl').textContent,
    ...[...document.querySelectorAll('body *')].filter(each =>
      each.getBoundingClientRect().right > innerWidth).map(each => 'too wide: ' + each.outerHTML));
  parent.postMessage({name, results}, '*');
});</script>"""
FRAMES = """<title></title><script>const shown = {};
addEventListener('message', event => { shown[event.data.name] = event.data.results;
                                       document.title = JSON.stringify(shown); });</script>
<iframe name=wide width=1280 height=900 src=short.html></iframe>
<iframe name=narrow width=380 height=900 src=short.html></iframe>
<iframe name=long width=1280 height=900 src=long.html></iframe>"""
MANY = 100000


def check_browser(page):
    chromium = shutil.which("chromium")
    if chromium is None:
        print("SKIPPED: chromium is missing; install it with scripts/setup.sh browser")
        sys.exit(77)
    # The policy of the page forbids the probe.
    head, short, tail = split(re.sub("<meta http-equiv[^>]*>", "", page.read_text(encoding="utf-8")))
    usual = json.dumps({"out": "a line", "failed": False}) + "\n"
    middle = json.dumps({"log": "in the middle", "failed": True}) + "\n"
    for name, rows in (("short", short),
                       ("long", usual * MANY + middle + usual * MANY + '{"out": "cu')):
        (page.parent / f"{name}.html").write_text(head + rows + tail + PROBE, encoding="utf-8")
    (page.parent / "frames.html").write_text(FRAMES, encoding="utf-8")
    dump = subprocess.run([chromium, "--headless", "--no-sandbox", "--disable-gpu",
                           f"--user-data-dir={page.parent}/profile", "--window-size=1400,3000",
                           "--virtual-time-budget=20000", "--dump-dom", f"file://{page.parent}/frames.html"],
                          capture_output=True, check=True, text=True, timeout=90).stdout
    shown = json.loads(html.unescape(re.search("<title>(.*)</title>", dump)[1]))
    for width in ("wide", "narrow"):
        last, first, second, third, opened, count, listed = shown[width]
        assert "EMSGSIZE" in first and first == third and first[0] == " ", shown
        assert second == CALL and " \u00b5s\n0000  00000000 10000000" in opened and count > 100, shown
        assert last > first and re.match("100and 21 moreprogram.*exit status0summary", listed, re.S), shown
    # For a long run, the page contains only some rows at a time, and still finds the failures.
    assert shown["long"][:4] == ["in the middle"] * 4 and 0 < shown["long"][5] < 3000, shown["long"]


def main():
    mode, zulisim, program = sys.argv[1:]
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        hostile = shutil.copy(program, name.encode() + b"/" + HOSTILE)
        (folder / "scenario").write_text(SCENARIO, encoding="utf-8")
        subprocess.run([zulisim, "run", "-q", "--lose", "read:9", "--fault", "write:7-8=EIO",
                        "--scenario", "scenario", "--trace", "trace", "--report", "report.html",
                        "--", hostile, *STEPS],
                       cwd=name, check=True, stdout=subprocess.DEVNULL, timeout=60)
        if mode == "browser":
            check_browser(folder / "report.html")
        else:
            check_trace((folder / "trace").read_text(encoding="utf-8"))
            check_report((folder / "report.html").read_text(encoding="utf-8"))


main()
