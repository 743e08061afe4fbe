"""The report page: what the program writes, and what a browser makes of it."""
import json
import os
import pathlib
import re
import resource
import signal
import socket
import subprocess
import sys
import unittest

from host import PROGRAM, RULES, ProgramCase, alert, result_line as line

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "scripts/page"))
import many_variables
from browser import Browser
from lab_results import evaluate_lab

BLOCK = re.compile(r'<script type="application/json" id="([^"]*)">(.*?)</script>', re.S)
HOSTILE = ('</script><script>window.hacked = 1</script>', '"><img src=x onerror="hacked=1">',
           "it's <b>bold</b> & {{script}} <!-- \u2028 \u2029", "line\nfeed\x01\x1b[31m\x7f",
           "\u202egnp.exe\u200f\u2066", "]]>&lt;\\u003cscript>\\")


def blocks(page):
    with open(page, encoding="utf-8") as file:
        return {name: json.loads(text) for name, text in BLOCK.findall(file.read())}


def details(page):
    """The details of all variables by their names, in the page's own order."""
    found = blocks(page)
    report = found["report"]
    rows = iter(report["variables"])
    return {next(rows)[5]: detail for first in report["chunks"] for detail in found[f"details-{first}"]}


class ReportCase(ProgramCase):
    def setUp(self):
        super().setUp()
        self.page = str(self.folder / "report.html")

    def write_lines(self, *lines):
        return self.write("results.jsonl", "".join(text + "\n" for text in lines))

    def report(self, *options, output=None, **more):
        return self.call("report", "--output", output or self.page, *options, **more)


class Program(ReportCase):
    def test_says_why_it_cannot_and_leaves_the_old_page(self):
        self.assertIn("no domain in the root folder", self.report(code=2)[1])
        self.call("init")
        for options, more, why in [
                (["--domain", "x"], {"code": 2}, 'domain "x"'),
                (["--results", "none"], {"code": 2}, "No such file"),
                ([], {"output": "no/page.html", "code": 3}, "No such file"),
                ([], {"output": str(self.folder), "code": 3}, "Is a directory"),
                ([], {"output": "/dev/full", "code": 3}, "No space left")]:
            self.assertIn(why, self.report(*options, **more)[1])
        self.write("report.html", "old")

        def small_files_only():
            signal.signal(signal.SIGXFSZ, signal.SIG_IGN)
            resource.setrlimit(resource.RLIMIT_FSIZE, (4096, 4096))

        self.assertIn("File too large", self.report(code=3, preexec_fn=small_files_only)[1])
        self.assertEqual(sorted(os.listdir(self.folder)), ["report.html", "root"])
        self.assertEqual(pathlib.Path(self.page).read_text(), "old")
        os.chmod(self.page, 0o640)
        self.report()
        self.assertEqual(os.stat(self.page).st_mode & 0o777, 0o640)
        self.assertEqual(sorted(os.listdir(self.folder)), ["report.html", "root"])
        self.database(RULES).write_bytes(b"no database" * 100)
        self.assertIn("KSObjectRule.db", self.report(code=2)[1])

    def test_stops_without_a_trace(self):
        self.call("init")
        program = self.process("report", "--output", self.page, "--results", "-", text=True,
                               stdin=subprocess.PIPE, stderr=subprocess.PIPE)
        program.stdin.write("no result\n")
        program.stdin.flush()
        program.stderr.readline()  # it has read the line and waits for the next
        program.terminate()
        self.assertEqual(program.wait(60), 3)  # its input stays open until then
        self.assertIn("stopped", program.communicate()[1])
        self.assertEqual(os.listdir(self.folder), ["root"])

    def test_counts_lines_that_are_no_results(self):
        self.call("init")
        results = self.write_lines("2023-11-15 ALERT", "", '{"time":1}', line(1),
                             line(2, device=7), line(3).replace('"alertItems": []', '"alertItems": {}'),
                             line(4, domain="elsewhere"))
        _, said = self.report("--results", results, code=1)
        self.assertEqual([text.rsplit("results.jsonl:")[1].split(":")[0] for text in said.splitlines()],
                         ["1", "3", "5", "6"])
        summary = blocks(self.page)["report"]["results"]
        self.assertEqual((summary["runs"], summary["skipped"]), (1, 4))
        page, _ = self.report("--results", "-", output="-", code=1,
                              input=pathlib.Path(results).read_bytes())
        self.assertTrue(page.startswith("<!doctype html>") and page.endswith("</html>\n"))

    def test_shows_all_domains_or_the_one_asked_for(self):
        for domain in ("default", "a/b", ""):
            self.call("init", "--domain", domain)
        self.database(RULES, "foreign").parent.mkdir()
        self.report()
        self.assertEqual(blocks(self.page)["report"]["domains"], ["", "a/b", "default"])
        self.report("--domain", "a/b")
        self.assertEqual(blocks(self.page)["report"]["domains"], ["a/b"])

    def test_joins_alerts_to_episodes(self):
        self.call("init")
        a, b = alert("a", "7"), alert("b", "8")
        open_, cleared, unseen = 0, 1, 2
        # (opened, last, count, end, cleared) of variable a
        cases = {
            "a run without it clears": (
                [line(0), line(10, [a]), line(20, [a, b]), line(30), line(40, [a])],
                [(10, 20, 2, cleared, 30), (40, 40, 1, open_, 0)]),
            "what was not read or was refused clears nothing": (
                [line(0), line(10, [a]), line(20, variables=0), line(30, rejected=["a"]), line(40, [a]),
                 line(50, source="other")],
                [(10, 40, 2, open_, 0)]),
            "values that were judged before clear nothing and are no quiet run": (
                [line(0, repeated=1), line(10, [a]), line(15, repeated=2), line(20, [a]),
                 line(3000000000, [a])],
                [(10, 20, 2, unseen, 0), (3000000000, 3000000000, 1, open_, 0)]),
            "told clearings are the only ones": (
                [line(10, [a], cleared=[]), line(20, [b], cleared=[]), line(900, [a], cleared=[]),
                 line(930, cleared=[{"variable": "a", "interface": ""}, {"variable": "?"}, 7])],
                [(10, 900, 2, cleared, 930)]),
            "without quiet runs another finding clears": (
                [line(10, [a]), line(20, [a, b]), line(30, [b])], [(10, 20, 2, cleared, 30)]),
            "without quiet runs a long pause is an end": (
                [line(10, [a]), line(20, [a]), line(30, [a]), line(300, [a])],
                [(10, 30, 3, unseen, 0), (300, 300, 1, open_, 0)]),
        }
        for name, (lines, expected) in cases.items():
            with self.subTest(name):
                self.report("--results", self.write_lines(*lines))
                found = details(self.page)["a"]["e"]
                self.assertEqual([tuple(episode[:5]) for episode in found], expected)
        refused = [[{"interface": "", "variable": "a", "reason": text}] for text in "xyy"]
        self.report("--results", self.write_lines(
            *(line(i, refused=values) for i, values in enumerate(refused))))
        found = details(self.page)["a"]
        self.assertEqual((found["f"][:2], found["s"][found["f"][2]]), ([3, 2], "y"))

    def test_keeps_a_long_episode_within_bounds(self):
        self.call("init")
        lines = [line(i, [alert("a", "x" * 5000 + str(i))], explanations=[{"sentence": f"s{i}"}])
                 for i in range(1000)]
        self.report("--results", self.write_lines(*lines))
        [episode] = details(self.page)["a"]["e"]
        times = [found[0] for found in episode[5]]
        self.assertEqual((episode[2], times[0], times[-1]), (1000, 0, 999))
        self.assertEqual([found[6] and found[6]["sentence"] for found in (episode[5][0], episode[5][-1])],
                         ["s0", "s999"])
        self.assertLess(os.path.getsize(self.page), 700_000)


    def test_shows_the_most_important_variables(self):
        many_variables.make(PROGRAM, self.root, self.folder / "stored.jsonl", 30, 0)
        numbers = {"cleared": (line(100, [alert("cleared", "7")]), line(110)),
                   "early": (line(120, [alert("early", "7")], source="t"),),
                   "often": (line(150, [alert("often", "7")], source="u"), line(160, [alert("often", "7")], source="u")),
                   "once": (line(160, [alert("once", "7")], source="v"),),
                   "golden": (line(170, source="w", result={"valueItems": [
                       {"strInterfaceName": "", "strVariableName": "golden", "strJsonValue": "1"}]}),)}
        lines = [text for texts in numbers.values() for text in texts]
        alerting = ["often", "once", "early", "cleared"]
        for limit in (1, 2, 3, 4, 10, 34, 35):
            _, said = self.report("--max-variables", str(limit), "--results", self.write_lines(*lines))
            report = blocks(self.page)["report"]
            shown = [row[5] for row in report["variables"]]
            self.assertEqual(set(shown) & {*numbers}, {*alerting[:limit], *(["golden"] if limit == 35 else [])})
            self.assertEqual(len(shown), min(limit, 35))
            self.assertEqual(report["totals"]["states"], [3, 1, 30, 0, 1])
            self.assertEqual([report["totals"][name] for name in ("variables", "devices", "episodes", "withRule")],
                             [35, 2, 4, 30])
            self.assertEqual(f"{limit} most important of 35 variables" in said, limit < 35)
            found = details(self.page)
            self.assertEqual([alert[0] for alert in found["often"]["e"][0][5]], [150, 160])
            if limit > 3:
                self.assertEqual(found["cleared"]["e"][0][:5], [100, 100, 1, 1, 110])

    def test_removes_what_killed_reports_have_left(self):
        self.call("init")
        names = [self.write(name, "") for name in (
            "report.html.aB3xYz.unfinished", "report.html.backup", "report.html.toolong.unfinished",
            "other.html.aB3xYz.unfinished")]
        young = self.write("report.html.Young1.unfinished", "")
        for name in names:
            os.utime(name, (0, 0))
        self.report()
        self.assertEqual([os.path.exists(name) for name in [*names, young]], [False, True, True, True, True])


class Page(ReportCase):
    """The page in the browser; every test ends with an empty console and no request."""

    def browse(self, **options):
        browser = Browser(**options)
        self.addCleanup(browser.close)
        browser.open(self.page)
        if options.get("script", True):
            browser.wait("document.documentElement.dataset.ready")
        self.addCleanup(self.check_quiet, browser)
        return browser

    def check_quiet(self, browser):
        self.assertEqual(browser.console(), [])
        foreign = [url for url in browser.requests() if url != "file://" + self.page]
        self.assertEqual(foreign, [])

    def search(self, browser, words):
        browser.run("document.activeElement.blur()")
        browser.press("/")
        browser.run("document.activeElement.select()")
        browser.press(*words)
        return browser.texts("#rows > .row .unfold bdi")

    def unfold(self, browser):
        """The first row, by keys."""
        browser.press("ArrowDown", "Enter")
        browser.wait("document.querySelector('.unfolded .drawing')")

    def test_lab_recording(self):
        evaluate_lab(PROGRAM, self.root, self.folder / "results.jsonl", "--explain", runs=12500)
        self.report("--results", self.folder / "results.jsonl")
        browser = self.browse()
        tiles = browser.texts(".tile strong")
        self.assertEqual(tiles[:2], ["4", "311"])
        self.assertGreater(len(browser.texts("#over-time .bar")), 5)
        self.assertTrue(all("alerting" in text or "cleared" in text
                            for text in browser.texts(".row .col-state")[:20]))

        with self.subTest("a bar of the chart, and back"):
            browser.click("#over-time .bar")
            count = browser.texts("#count")[0]
            self.assertRegex(count, r"^\d+ of 311$")
            browser.click("#reset")
            self.assertEqual(browser.texts("#count"), ["311 variables"])
        with self.subTest("filters and searches"):
            self.assertEqual(set(self.search(browser, "r2 mtu")), {"mtu"})
            self.assertEqual(self.search(browser, "nothing like this"), [])
            self.assertTrue(browser.run("return !document.getElementById('nothing').hidden"))
            browser.click("#reset")
        with self.subTest("sorts"):
            def column(name):
                return browser.texts(f"#rows > .row .{name}")[:50]
            browser.click("#columns .col-name button")
            names = browser.texts("#rows > .row .unfold bdi")[:50]
            self.assertEqual(names, sorted(names))
            browser.click("#columns .col-alerts button")
            alerts = [int(text) if text != "–" else 0 for text in column("col-alerts")]
            self.assertEqual(alerts, sorted(alerts, reverse=True))
            self.assertGreater(alerts[0], 0)
            browser.click("#columns .col-alerts button")
            self.assertEqual(column("col-alerts")[0], "–")
            browser.click("#columns .col-state button")
        with self.subTest("more rows come as they are needed"):
            browser.run("document.getElementById('more').scrollIntoView()")
            browser.wait("document.querySelectorAll('#rows > .row').length > 100")
        with self.subTest("an alert unfolded by keys, its drawing walked through"):
            self.search(browser, "r1 bgp_routes paths")
            self.unfold(browser)
            self.assertRegex(browser.texts(".unfolded .reason")[0], r"^paths is \d+, expected always \d+ \(learned")
            self.assertRegex(browser.texts(".unfolded .episodes summary")[0], r"\d+ alerts?.*(cleared \d|open at)")
            self.assertGreater(len(browser.texts(".unfolded path.alert")), 3)
            self.assertGreater(len(browser.texts(".unfolded .limit")), 1)
            browser.run("document.querySelector('.drawing').focus()")
            browser.press("End", "ArrowLeft")
            self.assertRegex(browser.texts(".readout")[0], r"^2026-11-21 \d.*: \d+")
            browser.press("Escape")
            self.assertEqual(browser.texts(".unfolded"), [])
            self.assertEqual(browser.run("return document.activeElement.className"), "unfold")
        with self.subTest("states as lanes, tables with their rows, texts by lines"):
            self.search(browser, "r1 bgp_summary state")
            self.unfold(browser)
            self.assertIn("Established", browser.texts(".unfolded text.lane")[0])
            self.search(browser, "r1 routes tableMd5")
            self.unfold(browser)
            self.assertTrue(browser.texts(".unfolded .difference .removed, .unfolded .difference .added"))
            self.search(browser, "r4 config text")
            self.unfold(browser)
            self.assertTrue(browser.texts(".unfolded .lines del, .unfolded .lines ins"))
        with self.subTest("narrow window and the choice of colours"):
            browser.resize(360, 740)
            browser.wait("document.documentElement.scrollWidth <= 360")
            browser.run("window.scrollTo(0, 0)")
            before = browser.run("return getComputedStyle(document.body).backgroundColor")
            browser.click("#theme")
            browser.click("#theme")
            self.assertNotEqual(
                browser.run("return getComputedStyle(document.body).backgroundColor"), before)

    def hostile_page(self):
        """Every text of a device is hostile: names, values, tables, explanations."""
        self.call("init", "--interval-time", "1")
        runs = []
        for time in range(12):
            for text in HOSTILE:
                value = text if time < 10 else "changed " + text
                runs.append(json.dumps({"time": 1000 + time * 100, "device": text, "source": text,
                                        "param": text, "variables": [
                    {"name": text, "interface": text, "value": value},
                    {"name": "t" + text, "value": [{text: value}]}]}))
        lines = self.evaluate("--enroll", "--quiet", "--all", "--format", "json",
                              input="\n".join(runs) + "\n")[0].rstrip("\n").split("\n")
        for i, text in enumerate(lines):
            run = json.loads(text)
            run["explanations"] = [{"sentence": HOSTILE[0], "table": {
                "keys": [HOSTILE[1]], "added": {"count": 1, "rows": [{HOSTILE[1]: HOSTILE[0]}]}}}
                for _ in run["result"]["alertItems"]]
            lines[i] = json.dumps(run)
        self.ask(RULES, "update KSObjectRule set ruleAlgParameter = cast(x'ff3c2f7363726970743e' as text) "
                 "where rowid = 1")
        self.report("--results", self.write_lines(*lines))

    def test_hostile_text_is_text(self):
        self.hostile_page()
        with open(self.page, encoding="utf-8") as file:
            text = file.read()
        self.assertEqual(text.count("<script"), text.count("</script>"))
        self.assertEqual(text.count("<script>"), 1)
        blocks(self.page)
        browser = self.browse()
        for button in range(len(browser.texts(".unfold"))):
            browser.run("const all = document.querySelectorAll('.unfold'); all[arguments[0]].click();"
                        "document.querySelectorAll('details').forEach((fold) => { fold.open = true; })",
                        button)
        browser.run("document.querySelectorAll('details').forEach((fold) => { fold.open = true; })")
        self.assertIsNone(browser.run("return window.hacked || null"))
        self.assertEqual(browser.run("return document.querySelectorAll('main img, main b, main script').length"), 0)
        names = browser.texts(".unfold bdi")
        self.assertIn(HOSTILE[0], names)
        self.assertIn(HOSTILE[1], names)
        self.assertIn(r"line\nfeed\x01\x1b[31m\x7f", names)
        self.assertIn(r"\u{202e}gnp.exe\u{200f}\u{2066}", names)
        self.assertGreater(len(browser.texts(".unfolded path.alert")), 0)
        unseen = browser.run("return /[\\u0000-\\u0008\\u200f\\u202e\\u2066\\u2028]/.test("
                             "document.querySelector('main').textContent)")
        self.assertFalse(unseen)
        with self.subTest("the policy refuses what comes from elsewhere"), \
                socket.create_server(("127.0.0.1", 0)) as elsewhere:
            elsewhere.setblocking(False)
            browser.run("const s = document.createElement('script'); s.textContent = 'window.hacked = 2';"
                        "document.body.append(s); const i = new Image(); i.src = arguments[0];",
                        f"http://127.0.0.1:{elsewhere.getsockname()[1]}/")
            self.assertIsNone(browser.run("return window.hacked || null"))
            refused = browser.console()
            self.assertEqual(len(refused), 2, refused)
            self.assertTrue(all("Content Security Policy" in entry for entry in refused), refused)
            self.assertRaises(BlockingIOError, elsewhere.accept)
            browser.requests()

    def test_without_script_the_alerts_are_a_list(self):
        self.hostile_page()
        browser = self.browse(script=False)
        shown = browser.command("Runtime.evaluate", expression="1") and browser.command(
            "DOM.getDocument", depth=0)["root"]["nodeId"]
        table = browser.command("DOM.querySelector", nodeId=shown, selector="noscript table")["nodeId"]
        box = browser.command("DOM.getBoxModel", nodeId=table)["model"]
        self.assertGreater(box["height"], 100)
        html = browser.command("DOM.getOuterHTML", nodeId=table)["outerHTML"]
        self.assertIn("&lt;/script&gt;&lt;script&gt;window.hacked", html)
        self.assertIn(r"\x1b[31m", html)
        self.assertGreater(html.count("<tr>"), len(HOSTILE))
        self.assertNotRegex(html, "<(script|img|b)[ >]")

    def test_ten_thousand_variables(self):
        many_variables.make(PROGRAM, self.root, self.folder / "results.jsonl", 10000, 1000)
        self.report("--results", self.folder / "results.jsonl")
        browser = self.browse()
        self.assertEqual(browser.texts("#count"), ["10,000 variables"])
        self.assertLess(browser.run("return document.querySelectorAll('*').length"), 5000)
        self.assertEqual(len(self.search(browser, "edge-042 load")), 33)
        self.unfold(browser)
        self.assertEqual(len(browser.texts(".unfolded circle.point")), 31)

    def test_odd_results_break_no_row(self):
        """Whatever stands where an explanation is due."""
        self.call("init")
        odd = [None, 7, "x", True, [], [None], {}, {"a": None}, [[None]]]
        explanations = [{"sentence": value} for value in odd]
        explanations += [{"history": value} for value in odd] + [{"history": {"last": value}} for value in odd]
        explanations += [{"history": {"last": [{"time": value, "value": value}]}} for value in odd]
        explanations += [{"table": value} for value in odd]
        for part in ("keys", "added", "removed", "changed"):
            explanations += [{"table": {part: value}} for value in odd]
            explanations += [{"table": {part: {"count": value, "rows": value}}} for value in odd]
        explanations += [{"table": {"changed": {"rows": [{"key": value, "before": value, "after": value}]}}}
                         for value in odd]
        lines = [line(i, [alert(f"v{i}", "7", kind=(4, 12)[i % 2])], explanations=[explanation], source=f"s{i}")
                 for i, explanation in enumerate(explanations * 2)]
        self.report("--results", self.write_lines(*lines))
        browser = self.browse()
        browser.run("window.dispatchEvent(new Event('beforeprint'))")  # all rows
        browser.run("document.querySelectorAll('.unfold').forEach((button) => button.click())")
        self.assertEqual(len(browser.texts(".unfolded .reason")), len(lines))
        self.assertEqual(browser.texts(".unfolded [role=alert]"), [])

    def test_says_what_is_left_out(self):
        many_variables.make(PROGRAM, self.root, self.folder / "results.jsonl", 300, 40)
        self.report("--results", self.folder / "results.jsonl", "--max-variables", "12")
        browser = self.browse()
        self.assertEqual(browser.texts("#count"), ["12 variables"])
        self.assertEqual(browser.texts(".tile strong")[:3], ["3", "300", "10"])
        self.assertRegex(browser.texts("#notes .notice")[0], "12 most important of 300 variables.*Left out: 288 no alert")

    def test_nothing_yet(self):
        self.call("init")
        self.report()
        browser = self.browse(dark=True)
        self.assertIn("Nothing is stored yet", browser.texts("#nothing")[0])
        self.assertIn("--results FILE", browser.texts("#over-time")[0])


if __name__ == "__main__":
    unittest.main(verbosity=2)
