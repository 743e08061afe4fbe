"""The Python module as its users call it."""

import contextlib
import gc
import logging
import math
import multiprocessing
import sqlite3
import subprocess
import sys
import threading
import time
from datetime import datetime, timezone
from unittest import mock

import keelstone
import pytest

START, STEP = 1_700_000_000, 2000


def nested(around, levels):
    value = 1
    for _ in range(levels):
        value = around([value]) if around is list else around(value)
    return value


@pytest.fixture(scope="session")
def root(tmp_path_factory):
    """A process has one root for all that it opens."""
    return tmp_path_factory.mktemp("keelstone") / "root"


@pytest.fixture
def place(root, request):
    """A root and a domain that no other test has used."""
    yield root, request.node.name
    gc.collect()  # what is still open after a failure is closed


def stored(place, device):
    """The variables of the device that have a history on the disk."""
    file = place[0] / "data/FSParserData" / place[1] / "KSObjectHistory.db"
    with contextlib.closing(sqlite3.connect(file)) as database:
        rows = database.execute(
            "select variableName from KSObjectHistory where deviceName = ?", [device]
        )
        return {name for name, in rows}


def neighbors(state="Established", prefixes=12):
    return [
        {"neighbor": "10.0.12.2", "state": state, "prefixes": prefixes},
        {"neighbor": "10.0.13.3", "state": "Established", "prefixes": 7},
    ]


def learn(domain, source, values, runs=12, **options):
    """Steady runs, until rules are learned."""
    for run in range(runs):
        result = domain.evaluate("r1", source, values, time=START + run * STEP, **options)
        assert not result.alerts and not result.rejected
    return runs


class TestShapesOfData:
    def test_rows_are_objects_with_variables(self, place):
        with keelstone.open(*place) as domain:
            runs = learn(domain, "bgp", neighbors(), interface="neighbor")
            result = domain.evaluate(
                "r1", "bgp", neighbors(state="Idle"), interface="neighbor", time=START + runs * STEP
            )
        [alert] = result.alerts
        assert (alert.device, alert.interface, alert.variable) == ("r1", "10.0.12.2", "state")
        assert (alert.rule, alert.parameter, alert.value) == (
            "strEqual",
            {"ruleParam": "Established"},
            "Idle",
        )
        assert alert.explanation["expected"]["value"] == "Established"
        assert "Idle" in alert.sentence and "Established" in alert.sentence
        assert alert.at == datetime.fromtimestamp(START + runs * STEP, timezone.utc)
        assert "Idle" in str(alert) and alert.to_dict()["variable"] == "state"
        assert result and result.to_dict()["document"]["alertItems"][0]["DeviceName"] == "r1"
        assert "1 alerts" in repr(result)

    def test_rows_are_a_table_compared_by_its_keys(self, place):
        def routes(via, age):
            return [{"prefix": "10.1.0.0/16", "via": via, "age": age}]

        with keelstone.open(*place) as domain:
            for run in range(12):
                domain.evaluate(
                    "r1", "rib", routes("10.0.12.2", run), table="routes",
                    keys=["prefix", "via"], time=START + run * STEP,
                )  # fmt: skip
            same, other = (
                domain.evaluate(
                    "r1", "rib", routes(via, 99), table="routes", keys=["prefix", "via"],
                    time=START + (12 + number) * STEP,
                )
                for number, via in enumerate(("10.0.12.2", "10.0.13.3"))
            )  # fmt: skip
        assert not same.alerts
        assert [alert.rule for alert in other.alerts] == ["tableMd5"]

    def test_the_path_to_a_value_is_its_interface(self, place):
        getter = {
            "eth0": {"is_up": True, "speed": 1000.0, "mac_address": None},
            "vrf": {"default": {"routes": [{"prefix": "10.0.0.0/8"}], "servers": ["a", "b"]}},
            "hostname": "r1",
        }
        with keelstone.open(*place) as domain:
            first = domain.evaluate("r1", "get", getter, keys={"routes": ["prefix"]}, time=START)
            runs = learn(domain, "get", getter, keys={"routes": ["prefix"]})
            getter["vrf"]["default"]["servers"].append("c")
            getter["eth0"]["is_up"] = False
            result = domain.evaluate("r1", "get", getter, time=START + runs * STEP)
        assert first.variables == 5  # None is no value
        assert {(alert.interface, alert.variable) for alert in result.alerts} == {
            ("eth0", "is_up"),
            ("vrf/default", "servers"),
        }

    @pytest.mark.parametrize(
        ("values", "options", "message"),
        [
            ([{"a": 1}], {}, "interface=… or table=…"),
            ([{"a": 1}], {"interface": "b"}, "row 0 has no column 'b'"),
            ({"a": 1}, {"interface": "a"}, "for lists of rows"),
            ({"a": 1}, {"keys": {"b": ["c"]}}, "no such table to give keys for: b"),
            ({"a": 1}, {"keys": ["b"]}, "{name: [column, …]}"),
            ({"t": [{"a": 1}, 2]}, {}, "not both"),
            ({"a": math.nan}, {}, "not JSON compliant"),
            ({"a": "\ud800"}, {}, "not JSON"),
            ({"a": nested(list, 100_000)}, {}, "nested too deeply"),
            (nested(lambda inner: {"a": inner}, 100_000), {}, "nested too deeply"),
            (None, {"interface": "a"}, "must be a list of rows"),
            ([None], {"interface": "a"}, "row 0 must be a dictionary"),
            ([{"a": 1}], {"interface": 5}, "interface: must be a name"),
            ([{"a": 1}], {"table": "t", "keys": [None]}, "t: keys: must be a name"),
            ({"t": [{"a": 1}]}, {"keys": {"t": 5}}, "t: keys: must be a name"),
            ({"a": 1}, {"time": 2**63}, "time: 9223372036854775808 is out of range"),
            ({"a": 1}, {"time": math.inf}, "time: must be seconds"),
            ({"a": 1}, {"param": "a\0b"}, "NUL"),
        ],
    )
    def test_what_is_no_value_is_refused_whole(self, place, values, options, message):
        with keelstone.open(*place) as domain:
            with pytest.raises(keelstone.InputError) as error:
                domain.evaluate("r1", "bad", values, **{"time": START, **options})
            assert message in str(error.value)
            assert not domain.evaluate("r1", "bad", {"a": 1}, time=START).rejected


class TestRunsAndDomains:
    def test_a_run_is_evaluated_once(self, place):
        with keelstone.open(*place) as domain:
            with domain.run("r1", "cpu", time=START) as run:
                run.add("load", 0.25).add("load", 1, "cpu1", type="float").add("note", b"a\xff")
                with pytest.raises(keelstone.UsageError):
                    run.result
            assert run.result.variables == 3
            assert "evaluated" in repr(run)
            for late in (run.evaluate, lambda: run.add("more", 1)):
                with pytest.raises(keelstone.UsageError):
                    late()
            with pytest.raises(ZeroDivisionError), domain.run("r1", "cpu", time=START) as broken:
                broken.add("load", 1 / 0)
            with pytest.raises(keelstone.UsageError):
                broken.result

    def test_values_that_are_turned_away_are_told(self, place):
        with keelstone.open(*place) as domain:
            runs = learn(domain, "s", {"a": 1})
            again = domain.evaluate("r1", "s", {"a": 2}, time=START)
            assert (again.variables, again.repeated, again.alerts) == (0, 1, [])
            twice = domain.run("r1", "s", time=START + runs * STEP).add("a", 1).add("a", 1)
            assert [str(value) for value in twice.evaluate().refused] == [
                "r1 s a: variables[1] has the name and the interface of variables[0]"
            ]
            assert domain.evaluate("r1", "s", {"a": 1}, time=2**40).rejected == ["a"]
        with keelstone.open(*place, judge_repeated=True, max_ahead=0) as domain:
            assert domain.evaluate("r1", "s", {"a": 2}, time=START).alerts
            assert domain.evaluate("r1", "s", {"a": 1}, time=2**40).variables == 1

    def test_leaving_the_block_writes_and_closes(self, place):
        with keelstone.open(*place) as domain:
            learn(domain, "s", {"a": 1})
            assert repr(domain) == f"<Domain {place[1]!r} below {str(place[0])!r}>"
            late, last = domain.run("r1", "s"), domain.run("r1", "s", time=START + 15 * STEP)
            native = last.add("b", 3)._native
            last._native = mock.Mock(wraps=native)
            last._native.store.side_effect = lambda: (domain.close(), native.store())
            last.evaluate()  # while another thread closes the domain
        assert stored(place, "r1") == {"a", "b"}
        domain.close()
        assert "closed" in repr(domain)
        for call in (late.evaluate, lambda: late.add("c", 1), lambda: domain.run("r1", "s")):
            with pytest.raises(keelstone.UsageError):
                call()
        # Another process sees what was learned.
        script = (
            "import keelstone, sys\n"
            "with keelstone.open(*sys.argv[1:], create=False) as domain:\n"
            f"    print(len(domain.evaluate('r1', 's', {{'a': 2}}, time={START + 20 * STEP}).alerts))"
        )
        seen = subprocess.run(
            [sys.executable, "-c", script, *map(str, place)], capture_output=True, text=True, check=True
        )
        assert seen.stdout.strip() == "1"

    def test_errors_tell_what_is_wrong(self, place):
        with pytest.raises(keelstone.DatabaseError) as missing:
            keelstone.open(place[0], "missing", create=False)
        assert "missing" in str(missing.value)
        with pytest.raises(keelstone.InputError):
            keelstone.open(place[0], "ill", settings=["intRange"])
        with keelstone.open(*place, enroll=False) as domain:
            assert domain.evaluate("r1", "s", {"a": 1}, time=START).rejected == ["a"]
            domain.define("s", "a", "int64")
            assert not domain.evaluate("r1", "s", {"a": 1}, time=START).rejected
            with pytest.raises(keelstone.UsageError):  # while a domain is open
                keelstone.open(place[0].parent / "other")
            with pytest.raises(keelstone.InputError):
                domain.merge("rules", "x")
            with pytest.raises(keelstone.DatabaseError):
                domain.merge("object-rule", place[0] / "none.db")
            with pytest.raises(keelstone.UsageError):
                domain.clean([])

    @pytest.mark.parametrize("keep", [["kept"], ("kept",), {"kept": 1}, "kept"])
    def test_clean_forgets_other_sources(self, place, keep):
        with keelstone.open(*place) as domain:
            for source in ("kept", "gone"):
                learn(domain, source, {"a": 1})
            for bad in (None, 5, [5], ["kept", None], b"kept", "kept\0"):
                with pytest.raises(keelstone.InputError):
                    domain.clean(bad)
            domain.clean(keep)
            later = START + 20 * STEP
            assert domain.evaluate("r1", "kept", {"a": 2}, time=later).alerts
            assert not domain.evaluate("r1", "gone", {"a": 2}, time=later).alerts


class TestThreads:
    def test_the_interpreter_goes_on_while_the_library_works(self, place):
        rows = [{"key": f"{number}", "text": "x" * 50} for number in range(20_000)]
        ticks = []
        done = threading.Event()

        def tick():
            while not done.is_set():
                ticks.append(time.monotonic())
                time.sleep(0.0005)

        with keelstone.open(*place) as domain:
            run = domain.run("r1", "big", time=START).add("rows", rows)
            # What Python does itself, JSON, is done before; the rest is the library's.
            text = run._pending and __import__("json").dumps(run._pending)
            run._pending = []
            thread = threading.Thread(target=tick)
            thread.start()
            while not ticks:
                time.sleep(0.001)
            before = len(ticks)
            run._native.add_json(text)
            run._native.evaluate()
            during = len(ticks) - before
            done.set()
            thread.join()
        assert during > 0

    @pytest.mark.parametrize("memory", [0, 1, 1 << 28])
    def test_runs_of_a_device_follow_each_other(self, place, memory):
        later = START + 20 * STEP
        with keelstone.open(*place, memory=memory) as domain:
            learn(domain, "s", {"a": 1})
            kept = domain.run("r1", "s", time=later).add("a", 2)
            assert kept.evaluate(store=False).alerts  # nothing is kept, nobody waits for it
            results = {}
            threads = [
                threading.Thread(
                    target=lambda device=f"r{n}": results.setdefault(
                        device, [domain.evaluate(device, "s", {"a": 2}, time=later) for _ in "12"]
                    )
                )
                for n in range(1, 4)
            ]
            for thread in threads:
                thread.start()
            for thread in threads:
                thread.join()
        assert len(results["r1"][0].alerts) == 1 and len(results) == 3
        for first, second in results.values():
            assert (first.repeated, second.repeated) == (0, 1)
        with pytest.raises(keelstone.InputError):
            keelstone.open(*place, memory=-1)

    def test_log_lines_go_to_a_logger_from_every_thread(self, place, caplog):
        logger = logging.getLogger("keelstone test")
        try:
            keelstone.set_logger(logger, level=0)
            with keelstone.open(*place) as domain, caplog.at_level(logging.DEBUG):
                threads = [
                    threading.Thread(
                        target=domain.evaluate, args=(f"r{n}", "s", {"a": "\x00\x7f"}),
                    )
                    for n in range(4)
                ]  # fmt: skip
                for thread in threads:
                    thread.start()
                for thread in threads:
                    thread.join()
            assert any(record.name == "keelstone test" for record in caplog.records)

            def broken(level, text):
                raise ValueError("a logger's fault stays with the logger")

            keelstone.set_logger(broken, level=0)
            with keelstone.open(*place) as domain:
                assert not domain.evaluate("r9", "s", {"b": 1}).rejected
        finally:
            keelstone.set_logger(None)

    def test_a_process_may_end_with_a_logger_and_work_left(self, place):
        script = (
            "import keelstone, sys, threading\n"
            "keelstone.set_logger(lambda level, text: None, level=0)\n"
            "domain = keelstone.open(*sys.argv[1:])\n"
            "def work():\n"
            "    for n in range(10**6): domain.evaluate(f'r{n % 9}', 's', {'a': n})\n"
            "threading.Thread(target=work, daemon=True).start()\n"
            "import time; time.sleep(0.3)\n"
        )
        subprocess.run([sys.executable, "-c", script, *map(str, place)], check=True, timeout=60)


class TestForks:
    def test_a_child_begins_with_nothing_open(self, place):
        with keelstone.open(*place) as domain:
            domain.evaluate("r1", "s", {"a": 1}, time=START)
            open_run = domain.run("r1", "s", time=START + STEP).add("a", 1)
            done_run = domain.run("r3", "s", time=START + STEP).add("a", 1)
            done_run.evaluate()

            def child():
                calls = (open_run.evaluate, lambda: open_run.add("b", 1), domain.flush, domain.close,
                         domain.reload, lambda: domain.evaluate("r1", "s", {"a": 1}))  # fmt: skip
                for call in calls:
                    with pytest.raises(keelstone.UsageError):
                        call()
                assert done_run.result.variables == 1
                keelstone.flush()
                assert not stored(place, "r1")  # its parent's to write
                with keelstone.open(*place) as own:
                    own.evaluate("r2", "s", {"b": 1}, time=START)
                sys.exit(7)  # out of its parent's block, as a program's own child

            assert exit_code(child) == 7
            assert not stored(place, "r1") and stored(place, "r2") == {"b"}
        assert stored(place, "r1") == {"a"}

    def test_children_of_a_busy_process_work_on(self, place):
        """Threads evaluate, log and flush all the while."""
        done = threading.Event()

        def work(device):
            while not done.is_set():
                domain.evaluate(device, "s", {"a": time.monotonic()})
                domain.flush()

        keelstone.set_logger(logging.getLogger("keelstone test"), level=0)
        try:
            with keelstone.open(*place) as domain:
                threads = [threading.Thread(target=work, args=(f"p{n}",)) for n in range(4)]
                for thread in threads:
                    thread.start()
                try:
                    context = multiprocessing.get_context("fork")
                    jobs = [(place, f"c{n}") for n in range(40)]
                    with context.Pool(4, maxtasksperchild=2) as pool:
                        counts = pool.starmap_async(evaluate_in_child, jobs).get(120)
                finally:
                    done.set()
                    for thread in threads:
                        thread.join()
        finally:
            keelstone.set_logger(None)
        assert counts == [1] * 40
        assert all(stored(place, device) == {"x"} for _, device in jobs)


def exit_code(work):
    child = multiprocessing.get_context("fork").Process(target=work)
    child.start()
    child.join(60)
    if child.is_alive():
        child.kill()
    return child.exitcode


def evaluate_in_child(place, device):
    with keelstone.open(*place) as domain:
        return domain.evaluate(device, "s", {"x": 1}, time=START).variables
