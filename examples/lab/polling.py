"""Polls the routers at a steady cadence and turns what they say into parser runs."""

import json
import random
import threading
import time

import parsers
from routers import LabError
from topology import DAEMONS, INTERNAL_AS, PROBED, autonomous_system, links_of, loopback


def vtysh(name, daemon, command):
    only = ["-d", daemon] if daemon else []
    return ["vtysh", "-N", name, *only, "-c", command]


def sources(name):
    """(source, commands, parser) for each parser that runs on a router."""
    found = [
        ("system", [vtysh(name, "zebra", "show version"), ["uname", "-n"],
                    vtysh(name, None, "show daemons")], parsers.system),
        ("processes", [["ps", "-o", "pid=,comm=,rss=", "-C", ",".join(DAEMONS)]],
         parsers.processes),
        ("config", [vtysh(name, None, "show running-config")], parsers.config),
        ("interfaces", [vtysh(name, "zebra", "show interface json")], parsers.interfaces),
        ("traffic", [["ip", "-s", "-j", "link"]], parsers.traffic),
        ("neighbors", [["ip", "-j", "neigh"]], parsers.neighbors),
        ("addresses", [["ip", "-j", "-4", "addr"]], parsers.addresses),
        ("routes", [vtysh(name, "zebra", "show ip route json")], parsers.routes),
        ("bgp_summary", [vtysh(name, "bgpd", "show bgp ipv4 unicast summary json")],
         parsers.bgp_summary),
        ("bgp_routes", [vtysh(name, "bgpd", "show bgp ipv4 unicast json")], parsers.bgp_routes),
    ]
    if autonomous_system(name) == INTERNAL_AS:
        found += [
            ("ospf_neighbors", [vtysh(name, "ospfd", "show ip ospf neighbor json")],
             parsers.ospf_neighbors),
            ("ospf_database", [vtysh(name, "ospfd", "show ip ospf json")],
             parsers.ospf_database),
        ]
    if any(rate for _, _, rate in links_of(name)):
        found.append(("shapers", [["tc", "-s", "-j", "qdisc"]], parsers.shapers))
    probes = [
        ["ping", "-q", "-c", "5", "-i", "0.05", "-W", "1", "-I", loopback(name), loopback(target)]
        for target in PROBED[name]
    ]
    found.append(("ping", probes, parsers.ping))
    return found


def succeeded(command, code):
    # A ping without an answer ends with 1 and has something to say all the same.
    return code == 0 or (command[0] == "ping" and code == 1)


class Poller:
    """Polls one router on a thread of its own; `write` takes the lines of a round."""

    def __init__(self, router, cadence, jitter, write):
        self._router = router
        self._cadence = cadence
        self._jitter = jitter
        self._write = write
        self._sources = [(*entry, {}) for entry in sources(router.name)]
        self._stopping = threading.Event()
        self._thread = threading.Thread(target=self._run, name=f"poll {router.name}")
        self.failure = None

    def start(self):
        self._thread.start()

    def stop(self):
        self._stopping.set()
        self._thread.join()

    def _run(self):
        try:
            slot = time.monotonic()
            while not self._stopping.wait(self._until(slot + random.uniform(0, self._jitter))):
                self._write([self._poll(*entry) for entry in self._sources])
                # A round that took too long drops slots rather than bunching the next ones.
                slot += self._cadence
                while slot + self._jitter < time.monotonic():
                    slot += self._cadence
        except Exception as failure:  # shown by the recorder, which then gives up
            self.failure = failure

    @staticmethod
    def _until(moment):
        return max(0.0, moment - time.monotonic())

    def _poll(self, source, commands, parse, memory):
        moment = int(time.time())
        outputs = []
        for command in commands:
            code, text = self._router.run(command)
            if not succeeded(command, code):
                break
            outputs.append(text)
        variables = []
        if len(outputs) == len(commands):
            try:
                variables = parse(outputs, memory)
            except (ValueError, KeyError, IndexError, AttributeError):
                pass  # the command has answered with something else than it should
        run = {"time": moment, "device": self._router.name, "source": source,
               "variables": [item for item in variables if item["value"] is not None]}
        return json.dumps(run, separators=(",", ":"))


class Recording:
    """Collects the runs of all routers in one file."""

    def __init__(self, lab, file, cadence, jitter):
        self._file = file
        self._lock = threading.Lock()
        self.runs = 0
        self._pollers = [Poller(router, cadence, jitter, self._write)
                         for router in lab.routers.values()]

    def __enter__(self):
        for poller in self._pollers:
            poller.start()
        return self

    def __exit__(self, *_):
        for poller in self._pollers:
            poller.stop()

    def check(self):
        for poller in self._pollers:
            if poller.failure is not None:
                raise LabError(f"polling broke off: {poller.failure!r}")

    def _write(self, lines):
        text = "".join(line + "\n" for line in lines).encode()
        with self._lock:
            self._file.write(text)
            self.runs += len(lines)
