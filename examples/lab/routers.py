"""Four FRR routers in namespaces of their own, joined by veth links.

A router is a process tree below one holder process in new network, host-name, mount and process-id
namespaces. The kernel ends everything in it when the holder ends, and the holder ends with the
recorder, so nothing is left behind however the recorder goes.
"""

import json
import os
import shutil
import signal
import subprocess
import time

from topology import CONFIGS, DAEMONS, LINKS, NAMES, STREAMS, bgp_neighbors, loopback

DAEMON_FOLDER = "/usr/lib/frr"
# Where FRR's daemons put sockets, configurations and crash logs: a tmpfs each in every router.
PRIVATE_FOLDERS = ("/run", "/etc/frr", "/var/tmp")
NEEDED_PROGRAMS = {
    "vtysh": "frr",
    "ip": "iproute2",
    "tc": "iproute2",
    "ping": "iputils-ping",
    "ps": "procps",
    "nsenter": "util-linux",
    "unshare": "util-linux",
    "setpriv": "util-linux",
    "mount": "mount",
}


class LabError(Exception):
    """Something that the lab needs is missing or did not come up; the text is for the person."""


class Router:
    """One router. Its commands may run on any thread; start and stop belong to one thread."""

    def __init__(self, name, log_folder):
        self.name = name
        self._log_folder = log_folder
        self._children = []
        # The holder's first child is process 1 of the new namespaces; it reaps and waits.
        self._holder = subprocess.Popen(
            ["setpriv", "--pdeathsig", "KILL",
             "unshare", "--net", "--uts", "--mount", "--pid", "--fork", "--kill-child",
             "--mount-proc", "sh", "-c", "while :; do sleep 3600 & wait $!; done"],
            stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
            start_new_session=True)
        self.pid = self._wait_for_namespace()

    def _wait_for_namespace(self):
        holder = self._holder.pid
        for _ in range(200):
            if self._holder.poll() is not None:
                break
            with open(f"/proc/{holder}/task/{holder}/children", encoding="ascii") as file:
                children = file.read().split()
            # The shell has replaced unshare's child once its private /proc is mounted.
            if children and _command_name(children[0]) == "sh":
                return int(children[0])
            time.sleep(0.02)
        raise LabError("namespaces cannot be made (network, UTS, mount, PID: run as root, "
                       "outside a locked-down container)")

    def inside(self, command):
        """The command line that runs `command` inside this router."""
        return ["nsenter", "-t", str(self.pid), "--net", "--uts", "--mount", "--pid", *command]

    def run(self, command, timeout=10.0):
        """Runs a command to its end; answers (exit code, output). A hung one counts as failed."""
        try:
            done = subprocess.run(self.inside(command), stdin=subprocess.DEVNULL,
                                  capture_output=True, timeout=timeout, check=False)
        except subprocess.TimeoutExpired:
            return -1, ""
        return done.returncode, done.stdout.decode("utf-8", "replace")

    def must(self, *command):
        try:
            done = subprocess.run(self.inside(command), stdin=subprocess.DEVNULL,
                                  capture_output=True, text=True, timeout=30, check=False)
        except subprocess.TimeoutExpired as error:
            raise LabError(f"{self.name}: {' '.join(command)}: hangs") from error
        if done.returncode != 0:
            raise LabError(f"{self.name}: {' '.join(command)}: "
                           f"{(done.stderr or done.stdout).strip()}")
        return done.stdout

    def background(self, command, log_name):
        log_path = os.path.join(self._log_folder, f"{self.name}-{log_name}.log")
        with open(log_path, "ab") as log:
            process = subprocess.Popen(self.inside(command), stdin=subprocess.DEVNULL,
                                       stdout=log, stderr=log, start_new_session=True)
        self._children.append(process)
        return process

    def vtysh(self, *commands):
        arguments = ["vtysh", "-N", self.name]
        for command in commands:
            arguments += ["-c", command]
        return self.must(*arguments)

    def configure(self, *commands):
        self.vtysh("configure terminal", *commands)

    def prepare(self):
        """Names the host and gives it private FRR folders, so that the machine's stay untouched."""
        self.must("hostname", self.name)
        script = [
            "set -e",
            *(f"mount -t tmpfs -o mode=0755,size=16m lab {folder}" for folder in PRIVATE_FOLDERS),
            f"mkdir -p /run/frr/{self.name} /etc/frr/{self.name} /var/tmp/frr",
        ]
        script += [
            "echo 1 > /proc/sys/net/ipv4/ip_forward",
            "for f in /proc/sys/net/ipv6/conf/*/disable_ipv6; do"
            " [ ! -e $f ] || echo 1 > $f; done",
            "for f in /proc/sys/net/ipv4/conf/*/rp_filter; do echo 0 > $f; done",
            "ip link set lo up",
        ]
        for daemon in DAEMONS:
            text = "\n".join(CONFIGS[daemon](self.name))
            script.append(f"cat > /etc/frr/{self.name}/{daemon}.conf <<'END'\n{text}\nEND")
        script += [
            f"echo 'no service integrated-vtysh-config' > /etc/frr/{self.name}/vtysh.conf",
            "chown -R frr:frr /run/frr /etc/frr /var/tmp/frr",
        ]
        self.must("sh", "-c", "\n".join(script))

    def start_daemon(self, daemon):
        self.background([f"{DAEMON_FOLDER}/{daemon}", "-N", self.name, "--log", "stdout"], daemon)

    def stop_daemon(self, daemon):
        path = f"/run/frr/{self.name}/{daemon}.pid"
        self.must("sh", "-c", f"kill $(cat {path}) && rm -f {path}")

    def start_daemons(self):
        for daemon in DAEMONS:
            self.start_daemon(daemon)
            self.wait_for_daemon(daemon)

    def wait_for_daemon(self, daemon):
        for _ in range(100):
            code, _ = self.run(["vtysh", "-N", self.name, "-d", daemon, "-c", "show version"])
            if code == 0:
                return
            time.sleep(0.1)
        raise LabError(f"{self.name}: {daemon} does not answer")

    def stop(self):
        if self._holder.poll() is None:
            self._holder.send_signal(signal.SIGKILL)
        self._holder.wait()
        for child in self._children:
            # What it runs has gone with the namespace; it only has to notice.
            try:
                child.wait(timeout=10)
            except subprocess.TimeoutExpired:
                child.kill()
                child.wait()


def _command_name(pid):
    try:
        with open(f"/proc/{pid}/comm", encoding="utf-8") as file:
            return file.read().strip()
    except OSError:
        return ""


class Lab:
    """The four routers and their links; a context manager that always takes them down again."""

    def __init__(self, log_folder):
        self._log_folder = log_folder
        self.routers = {}

    def __enter__(self):
        try:
            for name in NAMES:
                self.routers[name] = Router(name, self._log_folder)
            for router in self.routers.values():
                router.prepare()
            for index, link in enumerate(LINKS):
                self._join(index, *link)
            for router in self.routers.values():
                router.start_daemons()
        except BaseException:
            self.__exit__()
            raise
        return self

    def __exit__(self, *_):
        for router in self.routers.values():
            router.stop()

    def _join(self, index, left, left_port, right, right_port, rate):
        ends = ((self.routers[left], left_port), (self.routers[right], right_port))
        made = subprocess.run(
            ["ip", "link", "add", left_port, "netns", str(ends[0][0].pid), "type", "veth",
             "peer", "name", right_port, "netns", str(ends[1][0].pid)],
            capture_output=True, text=True, check=False)
        if made.returncode != 0:
            raise LabError(f"a veth link cannot be made: {made.stderr.strip()}")
        for side, (router, port) in enumerate(ends):
            mac = f"02:00:00:00:{index + 1:02x}:{side + 1:02x}"
            router.must("ip", "link", "set", port, "address", mac)
            router.must("ip", "link", "set", port, "up")
            if rate is not None:
                router.must("tc", "qdisc", "add", "dev", port, "root", "tbf",
                            "rate", str(rate), "burst", "16kb", "latency", "100ms")

    def start_traffic(self):
        for source, target in STREAMS:
            self.routers[source].background(
                ["ping", "-q", "-i", "0.05", "-s", "472", "-I", loopback(source),
                 loopback(target)], f"ping-{target}")

    def converged(self):
        """Every BGP session is up and every loopback is reached from everywhere."""
        for name, router in self.routers.items():
            code, text = router.run(
                ["vtysh", "-N", name, "-d", "bgpd", "-c", "show bgp ipv4 unicast summary json"])
            peers = json.loads(text).get("peers", {}) if code == 0 else {}
            up = sum(peer["state"] == "Established" for peer in peers.values())
            if up != len(list(bgp_neighbors(name))):
                return False
            for other in NAMES:
                code, _ = router.run(["ping", "-q", "-c", "1", "-W", "1",
                                      "-I", loopback(name), loopback(other)])
                if code != 0:
                    return False
        return True

    def wait_until_converged(self, limit=120.0):
        end = time.monotonic() + limit
        while not self.converged():
            if time.monotonic() > end:
                raise LabError(f"the routers did not find each other within {limit:.0f} s")
            time.sleep(1.0)


def missing():
    """What the lab needs and does not find, one readable line each."""
    lines = []
    if os.geteuid() != 0:
        lines.append("root is needed to make namespaces and links: run it with sudo")
    for program, package in NEEDED_PROGRAMS.items():
        if shutil.which(program) is None:
            lines.append(f"the program {program} is missing (package {package})")
    for daemon in DAEMONS:
        if not os.access(os.path.join(DAEMON_FOLDER, daemon), os.X_OK):
            lines.append(f"{DAEMON_FOLDER}/{daemon} is missing (package frr)")
    if not lines:
        lines += _missing_kernel_features()
    return lines


def _missing_kernel_features():
    probes = (
        ("network, UTS, mount and PID namespaces", "true"),
        ("veth links", "ip link add lab0 type veth peer name lab1"),
        ("the tbf queueing discipline", "ip link add lab0 type veth peer name lab1 && "
         "tc qdisc add dev lab0 root tbf rate 1mbit burst 16kb latency 100ms"),
        ("tmpfs", "mount -t tmpfs lab /mnt"),
    )
    for feature, script in probes:
        done = subprocess.run(["unshare", "--net", "--uts", "--mount", "--pid", "--fork",
                               "--mount-proc", "sh", "-c", script],
                              capture_output=True, text=True, check=False)
        if done.returncode != 0:
            yield f"the kernel does not offer {feature}: {done.stderr.strip()}"
