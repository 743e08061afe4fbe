"""The program where threads, memory or room in a line are short: it goes on with what it got, or
says that something is missing; it never dies, and an exit code of 0 means that all was done."""
import json
import os
import resource
import shutil
import signal
import subprocess
import unittest

from host import HISTORIES, RULES, ProgramCase, alert, result_line

ADDRESSES = 1 << 47  # bytes; no thread can have a stack as large
START = 1_790_000_000


def recording(rounds, devices):
    """Numbers, texts and tables that are learned, and break what was learned in the end."""
    for number in range(rounds):
        isBroken = number == rounds - 1
        for device in range(devices):
            yield json.dumps({"time": START + 1900 * number, "device": f"r{device}", "source": "s", "variables": [
                {"name": "same", "value": 7 + isBroken}, {"name": "text", "value": "x\n" * (40 + isBroken)},
                {"name": "wave", "interface": "eth0", "type": "double", "value": 900 if isBroken else number % 5},
                {"name": "rows", "value": [{"a": i, "b": isBroken} for i in range(30)]}]})


def report_line(number, *, time=START):
    device = f"edge-{number:06}.example"
    explanation = {"sentence": f"load is 99, expected always 5 (learned from {number % 90} values)",
                   "history": {"last": [{"time": time - i, "value": "5"} for i in range(10)]}}
    return result_line(time, [alert("load", "99", device=device)], device=device,
                       explanations=[explanation], cleared=[])


class ResourcesTest(ProgramCase):
    def setUp(self):
        super().setUp()
        self.call("init", "--interval-time", "60")
        self.fresh = self.folder / "fresh"
        self.root.rename(self.fresh)

    def write_lines(self, lines):
        return self.write("in.jsonl", "".join(line + "\n" for line in lines))

    def run_in(self, limits, *arguments):
        """Exit code, output and messages of the program on a fresh root within limits."""
        shutil.rmtree(self.root, ignore_errors=True)
        shutil.copytree(self.fresh, self.root)

        def restrict():
            for kind, limit in limits.items():
                resource.setrlimit(kind, (limit, limit))

        begun = self.process(*arguments, stdout=subprocess.PIPE, stderr=subprocess.PIPE, preexec_fn=restrict)
        out, said = begun.communicate(timeout=300)
        return begun.returncode, out, said.decode(errors="replace")

    def stored(self):
        rows = []
        for name in (RULES, HISTORIES):
            self.assertEqual(self.ask(name, "pragma integrity_check"), [("ok",)])
            rows += self.ask(name, f"select * from {name} order by 1, 2, 3, 4, 5")
        return rows

    # threads

    def test_threads_that_cannot_be_started(self):
        lines = self.write_lines(recording(14, 8))
        work = ("evaluate", "--enroll", "--all", "--threads", "8", lines)
        expected = self.run_in({}, *work), self.stored()
        self.assertEqual(expected[0][0], 0, expected)
        code, out, said = self.run_in({resource.RLIMIT_STACK: ADDRESSES}, *work)
        self.assertEqual((code, out, self.stored()), (0, expected[0][1], expected[1]), said)
        self.assertIn("of 8 evaluating threads 0 could be started", said)
        code, _, said = self.run_in({resource.RLIMIT_STACK: ADDRESSES}, "report", "--output", "page")
        self.assertEqual((code, said), (0, ""))

    def test_a_signal_without_a_thread_for_it(self):
        shutil.copytree(self.fresh, self.root)
        begun = self.process(
            "evaluate", "--enroll", "--all", stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
            preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_STACK, (ADDRESSES, ADDRESSES)))
        begun.stdin.write("\n".join(recording(2, 3)).encode() + b"\n")
        begun.stdin.flush()
        for _ in range(6):
            begun.stdout.readline()  # what is there is evaluated at once
        begun.send_signal(signal.SIGTERM)
        self.assertEqual(begun.wait(60), 3)  # its input stays open until then
        begun.communicate()
        self.assertGreater(len(self.stored()), 0)

    # memory

    def test_memory_that_is_limited(self):
        lines = self.write_lines(recording(12, 8))
        work = ("evaluate", "--enroll", "--all", "--threads", "4", lines)
        expected = self.run_in({}, *work)
        least = next(mb for mb in range(10, 200) if self.run_in({resource.RLIMIT_AS: mb << 20}, "init")[0] == 0)
        codes = set()
        for limit in range(least, least + 100, 4):
            code, out, said = self.run_in({resource.RLIMIT_AS: limit << 20}, *work)
            self.assertIn(code, (0, 2, 3), (limit, said))
            codes.add(code)
            if code == 0:
                self.assertEqual(out, expected[1], limit)
        self.assertTrue(codes >= {0}, codes)

    def test_a_report_of_many_alerting_devices(self):
        results, page = self.folder / "results.jsonl", self.folder / "page.html"
        with open(results, "w", encoding="utf-8") as file:
            for number in range(300_000):
                file.write(report_line(number, time=START + number % 3000) + "\n")
        shutil.copytree(self.fresh, self.root)
        for source in (results, "-"):
            with open(results, "rb") as piped:
                feed = subprocess.Popen(["cat"], stdin=piped, stdout=subprocess.PIPE)
                report = self.process("report", "--output", page, "--results", source, stdin=feed.stdout,
                                      stderr=subprocess.PIPE)
                feed.stdout.close()
                said = report.stderr.read().decode()
                _, status, usage = os.wait4(report.pid, 0)
                report.returncode = status
                report.stderr.close()
                feed.kill(), feed.wait()
            self.assertEqual(status, 0, said)
            self.assertIn("10000 most important of 300000 variables", said)
            print(f"report of 300,000 alerting devices: {usage.ru_maxrss >> 10} MB of memory, "
                  f"a page of {os.path.getsize(page) >> 20} MB")
            self.assertLess(usage.ru_maxrss, 256 << 10)
            self.assertLess(os.path.getsize(page), 32 << 20)

    # lines

    def test_long_and_many_bad_lines(self):
        good = next(recording(1, 1))
        padded = good[:-1] + " " * (5000 - len(good)) + "}"
        lines = self.write_lines([good, padded, padded + " ", "x" * 900_000, good] + ["bad"] * 200 + [good])
        code, out, said = self.run_in({}, "evaluate", "--enroll", "--all", "--max-line", "5000", lines)
        self.assertEqual((code, out.count(b"\n")), (1, 4), said)
        places = [line.rsplit("in.jsonl:", 1)[1].split(":")[0] for line in said.splitlines() if "in.jsonl:" in line]
        self.assertEqual(places, ["3", "4"] + [str(number) for number in range(6, 104)])
        self.assertIn("longer than 5000 bytes", said)
        self.assertIn("further lines that are skipped are only counted", said)
        self.assertIn("202 lines skipped", said)
        self.assertEqual(self.run_in({}, "evaluate", "--max-line", "1kb", "--strict", lines)[0], 1)
        code, _, said = self.run_in({}, "report", "--output", "page", "--max-line", "100kb",
                                    "--results", lines)
        self.assertEqual((code, said.count("in.jsonl:")), (1, 100))


if __name__ == "__main__":
    unittest.main(verbosity=2)
