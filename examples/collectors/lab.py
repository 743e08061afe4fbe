"""The lab of examples/lab, with two faults, for the collectors that record it live.

A recording is 50 polls, 3 s apart: 30 without a fault, 5 with r1's link to r2 down, 5 without, 5
with r2's BGP session to r4 shut, 5 without. What was done and when goes to `faults.jsonl`.
"""

import contextlib
import gzip
import io
import json
import os
import subprocess
import sys
import tempfile
import time

HERE = os.path.dirname(os.path.abspath(__file__))
COLLECTORS = os.environ.get("KEELSTONE_COLLECTORS",
                            os.path.expanduser("~/.cache/keelstone-collectors"))
DEBIAN = os.path.join(COLLECTORS, "debian")
sys.dont_write_bytecode = True
sys.path.insert(0, os.path.join(HERE, os.pardir, "lab"))

from faults import LinkDown, SessionShut  # noqa: E402
from routers import Lab, LabError, missing  # noqa: E402

CADENCE = 3.0
POLLS = 50
GNMI_ROUTERS = ("r1=127.0.0.1:57401", "r2=127.0.0.2:57401")
FAULTS = ((30, 35, LinkDown()), (40, 45, SessionShut()))


def tool(*path):
    """The path of an installed file; ends the recording when it is missing."""
    found = os.path.join(COLLECTORS, *path)
    if not os.path.exists(found):
        sys.exit(f"record: {found} is missing: run examples/collectors/install")
    return found


def debian_tool(*path):
    """The command line of a program from the extracted packages; /run is a router's own."""
    program = tool("debian", *path)
    libraries = os.path.join(DEBIAN, "usr/lib/x86_64-linux-gnu")
    return ["env", f"LD_LIBRARY_PATH={libraries}", "SNMP_PERSISTENT_DIR=/run/snmp",
            program]


@contextlib.contextmanager
def running():
    """The converged lab with its traffic, and a folder for temporary files."""
    lines = missing()
    if lines:
        sys.exit("".join(f"record: {line}\n" for line in lines) +
                 "record: examples/lab/install-dependencies installs the packages")
    with tempfile.TemporaryDirectory(prefix="lab-", dir="/tmp") as folder, Lab(folder) as lab:
        for router in lab.routers.values():
            # The machine's /sys shows the machine's interfaces.
            router.must("mount", "-t", "sysfs", "lab", "/sys")
        lab.wait_until_converged()
        lab.start_traffic()
        time.sleep(5.0)
        yield lab, folder


def polls(lab, labels):
    """Yields the number of each poll when it is due; begins and ends the faults in between."""
    begun = time.monotonic()
    entries = []
    for poll in range(POLLS):
        for first, end, fault in FAULTS:
            if poll == first:
                entries.append({"fault": fault.name, "devices": list(fault.devices),
                                "from": int(time.time())})
                fault.begin(lab)
            elif poll == end:
                fault.end(lab)
                entries[-1]["to"] = int(time.time()) + 1
        time.sleep(max(0.0, begun + (poll + 0.5) * CADENCE - time.monotonic()))
        yield poll
    with open(labels, "w", encoding="utf-8") as file:
        file.writelines(json.dumps(entry) + "\n" for entry in entries)


def inside(router, command, **options):
    """The output of a command inside a router, which must succeed."""
    return subprocess.run(router.inside(command), check=True, capture_output=True, text=True,
                          timeout=30, **options).stdout


@contextlib.contextmanager
def daemon(router, command, name):
    """A program that runs inside a router until the block ends."""
    process = router.background(command, name)
    try:
        yield process
    finally:
        process.terminate()
        process.wait(timeout=30)


def start_snmpd(router):
    """snmpd with the configuration beside this file, on the router's own loopback."""
    router.background([*debian_tool("usr/sbin/snmpd"), "-f", "-Lo", "-C", "-m", "", "-I", "-smux",
                       "-c", os.path.join(HERE, "snmpd.conf"), "-p", "/run/snmpd.pid"],
                      "snmpd")
    wait_for_port(router, 161, "udp")


def wait_for_port(router, port, protocol="tcp"):
    for _ in range(100):
        if f":{port:04X} " in inside(router, ["cat", f"/proc/net/{protocol}"]):
            return
        time.sleep(0.1)
    raise LabError(f"{router.name}: nothing listens on port {port}")


@contextlib.contextmanager
def gnmi_target():
    """The target of gnmic/target, serving two routers of the lab's recording."""
    program = tool("bin", "lab-target")
    recording = os.path.join(HERE, os.pardir, "lab", "recording.jsonl.gz")
    with subprocess.Popen([program, "serve", recording, *GNMI_ROUTERS],
                          stdout=subprocess.PIPE) as process:
        try:
            process.stdout.readline()
            yield
        finally:
            process.terminate()


def wait_until_quiet(path):
    """Waits until a file exists and has not grown for five seconds."""
    size, since = -1, time.monotonic()
    while size <= 0 or time.monotonic() - since < 5.0:
        time.sleep(0.2)
        grown = os.path.getsize(path) if os.path.exists(path) else -1
        if grown != size:
            size, since = grown, time.monotonic()


def read(path):
    with open(path, encoding="utf-8") as file:
        return file.read()


def in_python(script):
    """Goes on in the environment that holds the parsers."""
    environment = os.path.join(COLLECTORS, "python")
    if os.path.realpath(sys.prefix) != os.path.realpath(environment):
        python = tool("python", "bin", "python3")
        os.execv(python, [python, script, *sys.argv[1:]])


def texts():
    """What the routers have answered to textfsm/record, entry by entry."""
    with gzip.open(os.path.join(HERE, "textfsm", "texts.jsonl.gz"), "rt", encoding="utf-8") as file:
        yield from map(json.loads, file)


def line(**members):
    return json.dumps(members, separators=(",", ":")) + "\n"


def write_gzip(path, content):
    """The same content gives the same bytes."""
    data = content.encode() if isinstance(content, str) else content
    raw = io.BytesIO()
    with gzip.GzipFile("", "wb", 9, raw, mtime=0) as file:
        file.write(data)
    with open(path, "wb") as file:
        file.write(raw.getvalue())
    print(f"{os.path.relpath(path, HERE)}: {len(data)} bytes, {len(raw.getvalue())} compressed")
