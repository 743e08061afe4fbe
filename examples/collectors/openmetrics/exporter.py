"""Exports what a router of the lab says of itself, on 127.0.0.1:9101; started by record.

The samples and the text come from the Prometheus client library; a session's state is a state set,
what vtysh took is a histogram with exemplars.
"""

import json
import subprocess
import sys
import threading
import time

from prometheus_client import CollectorRegistry, Histogram, start_http_server
from prometheus_client.core import (CounterMetricFamily, GaugeMetricFamily, InfoMetricFamily,
                                    StateSetMetricFamily)

NAME = sys.argv[1]
STATES = ("Idle", "Connect", "Active", "OpenSent", "OpenConfirm", "Established", "Clearing",
          "Deleted")
COUNTERS = {
    "router_interface_receive_bytes": ("rx", "bytes"),
    "router_interface_transmit_bytes": ("tx", "bytes"),
    "router_interface_receive_packets": ("rx", "packets"),
    "router_interface_transmit_packets": ("tx", "packets"),
}
registry = CollectorRegistry()
seconds = Histogram("router_command_duration_seconds", "What a command took.", ["command"],
                    buckets=(.01, .02, .05, .1, .2, .5), registry=registry)
started = time.time()
scrapes = 0


def answer(*command):
    begun = time.monotonic()
    text = subprocess.run(command, check=True, capture_output=True, text=True).stdout
    seconds.labels(command[-1].removesuffix(" json")).observe(
        time.monotonic() - begun, {"scrape": str(scrapes)})
    return json.loads(text)


def vtysh(daemon, command):
    return answer("vtysh", "-N", NAME, "-d", daemon, "-c", f"{command} json")


class Router:
    def collect(self):
        global scrapes
        scrapes += 1
        yield InfoMetricFamily("router", "The router.", {"name": NAME, "role": "lab \"router\""})
        yield from interfaces()
        yield from sessions()


def interfaces():
    links = [link for link in answer("ip", "-s", "-j", "link") if link["ifname"] != "lo"]
    for name, (direction, unit) in COUNTERS.items():
        family = CounterMetricFamily(name, f"{direction} {unit} of an interface.",
                                     labels=["interface"], unit="bytes" if unit == "bytes" else "")
        for link in links:
            family.add_metric([link["ifname"]], link["stats64"][direction][unit], created=started)
        yield family
    up = GaugeMetricFamily("router_interface_up", "Whether it carries frames.",
                           labels=["interface"])
    for link in links:
        up.add_metric([link["ifname"]], link["operstate"] == "UP")
    yield up


def sessions():
    state = StateSetMetricFamily("router_bgp_session_state", "State of a BGP session.",
                                 labels=["neighbor", "remote_as"])
    prefixes = GaugeMetricFamily("router_bgp_prefixes_received", "Prefixes that it has sent.",
                                 labels=["neighbor", "remote_as"])
    for address, peer in vtysh("bgpd", "show bgp ipv4 unicast summary")["peers"].items():
        labels = [address, str(peer["remoteAs"])]
        state.add_metric(labels, {name: peer["state"] == name for name in STATES})
        prefixes.add_metric(labels, peer["pfxRcd"] if peer["state"] == "Established"
                            else float("nan"))
    yield state
    yield prefixes


registry.register(Router())
start_http_server(9101, "127.0.0.1", registry)
threading.Event().wait()
