"""The faults that the lab injects, in the order in which it injects them.

A fault's `expected` names the variables that it is meant to change: device, source, interface,
variable. They are written down beforehand, from what the fault is; what a fault does besides shows
in the recording.
"""

import time

from topology import link_address, loopback, port_towards


class Fault:
    """One fault; `begin` and `end` run commands on the routers, `during` fills the time between."""

    name = ""
    devices = ()
    expected = ()

    def begin(self, lab):
        raise NotImplementedError

    def end(self, lab):
        raise NotImplementedError

    def during(self, _lab, until, wait):
        wait(until - time.monotonic())


class LinkDown(Fault):
    """The link r1-r2 is taken down on r1."""

    name = "link down"
    devices = ("r1", "r2")
    port = port_towards("r1", "r2")
    far = port_towards("r2", "r1")
    expected = (
        ("r1", "interfaces", port, "admin"),
        ("r1", "interfaces", port, "oper"),
        ("r1", "interfaces", "", "interfaces"),
        ("r1", "ospf_neighbors", "", "full"),
        ("r1", "ospf_neighbors", "", "neighbors"),
        ("r1", "routes", "", "routes"),
        ("r2", "interfaces", far, "oper"),
        ("r2", "interfaces", "", "interfaces"),
        ("r2", "ospf_neighbors", "", "full"),
        ("r2", "ospf_neighbors", "", "neighbors"),
        ("r2", "routes", "", "routes"),
    )

    def begin(self, lab):
        lab.routers["r1"].must("ip", "link", "set", self.port, "down")

    def end(self, lab):
        lab.routers["r1"].must("ip", "link", "set", self.port, "up")


class SessionShut(Fault):
    """The BGP session r2-r4 is shut on r2."""

    name = "session shut"
    devices = ("r2", "r4")
    neighbor = link_address("r4", "r2")
    expected = (
        ("r2", "bgp_summary", neighbor, "state"),
        ("r2", "bgp_summary", "", "established"),
        ("r2", "bgp_summary", "", "peers"),
        ("r2", "config", "", "text"),
        ("r2", "routes", "", "routes"),
        ("r4", "bgp_summary", link_address("r2", "r4"), "state"),
        ("r4", "bgp_summary", "", "established"),
        ("r4", "bgp_summary", "", "peers"),
    )

    def begin(self, lab):
        lab.routers["r2"].configure("router bgp 65001", f"neighbor {self.neighbor} shutdown")

    def end(self, lab):
        lab.routers["r2"].configure("router bgp 65001", f"no neighbor {self.neighbor} shutdown")


class RouteWithdrawn(Fault):
    """r4 loses a static route and with it an announced prefix."""

    name = "route withdrawn"
    devices = ("r4", "r1", "r2", "r3")
    route = "ip route 203.0.113.0/24 Null0"
    expected = (
        ("r4", "routes", "static", "count"),
        ("r4", "config", "", "text"),
        *((device, "routes", "", "routes") for device in devices),
        *((device, "bgp_routes", "", "prefixes") for device in devices[1:]),
        *((device, "bgp_routes", "", "routes") for device in devices),
        ("r2", "bgp_summary", link_address("r4", "r2"), "prefixes_received"),
        ("r3", "bgp_summary", link_address("r4", "r3"), "prefixes_received"),
    )

    def begin(self, lab):
        lab.routers["r4"].configure(f"no {self.route}")

    def end(self, lab):
        lab.routers["r4"].configure(self.route)


class UnexpectedPrefix(Fault):
    """r4 announces a prefix that it never had before."""

    name = "unexpected prefix"
    devices = ("r4", "r1", "r2", "r3")
    prefix = "192.0.2.128/25"
    expected = (
        ("r4", "routes", "static", "count"),
        ("r4", "config", "", "text"),
        *((device, "routes", "", "routes") for device in devices),
        *((device, "bgp_routes", "", "prefixes") for device in devices),
        *((device, "bgp_routes", "", "routes") for device in devices),
        ("r2", "bgp_summary", link_address("r4", "r2"), "prefixes_received"),
        ("r3", "bgp_summary", link_address("r4", "r3"), "prefixes_received"),
    )

    def begin(self, lab):
        lab.routers["r4"].configure(f"ip route {self.prefix} Null0", "router bgp 65002",
                                    "address-family ipv4 unicast", f"network {self.prefix}")

    def end(self, lab):
        lab.routers["r4"].configure("router bgp 65002", "address-family ipv4 unicast",
                                    f"no network {self.prefix}", "exit-address-family", "exit",
                                    f"no ip route {self.prefix} Null0")


class MtuChanged(Fault):
    """r3 gets a smaller MTU towards r4."""

    name = "MTU changed"
    devices = ("r3",)
    port = port_towards("r3", "r4")
    expected = (
        ("r3", "interfaces", port, "mtu"),
        ("r3", "interfaces", "", "interfaces"),
    )

    def begin(self, lab):
        lab.routers["r3"].must("ip", "link", "set", self.port, "mtu", "1400")

    def end(self, lab):
        lab.routers["r3"].must("ip", "link", "set", self.port, "mtu", "1500")


class HostnameChanged(Fault):
    """r2 gets another name, in its configuration and of its host."""

    name = "hostname changed"
    devices = ("r2",)
    expected = (
        ("r2", "system", "", "configured_name"),
        ("r2", "system", "", "host_name"),
        ("r2", "config", "", "text"),
    )

    def _rename(self, lab, name):
        router = lab.routers["r2"]
        router.must("hostname", name)
        router.configure(f"hostname {name}")

    def begin(self, lab):
        self._rename(lab, "r2-spare")

    def end(self, lab):
        self._rename(lab, "r2")


class DaemonRestarted(Fault):
    """bgpd of r4 ends and is started again in the middle of the window."""

    name = "daemon restarted"
    devices = ("r4", "r2", "r3")
    expected = (
        ("r4", "processes", "", "processes"),
        ("r4", "processes", "", "count"),
        ("r4", "system", "", "daemons"),
        ("r4", "config", "", "text"),
        ("r4", "routes", "", "routes"),
        ("r2", "bgp_summary", link_address("r4", "r2"), "state"),
        ("r2", "bgp_summary", "", "peers"),
        ("r3", "bgp_summary", link_address("r4", "r3"), "state"),
        ("r3", "bgp_summary", "", "peers"),
    )

    def begin(self, lab):
        lab.routers["r4"].stop_daemon("bgpd")

    def during(self, lab, until, wait):
        wait((until - time.monotonic()) / 2)
        lab.routers["r4"].start_daemon("bgpd")
        wait(until - time.monotonic())

    def end(self, lab):
        lab.routers["r4"].wait_for_daemon("bgpd")


class LinkFlapping(Fault):
    """The link r1-r3 goes down and up again on r3 every few seconds."""

    name = "link flapping"
    devices = ("r3", "r1")
    port = port_towards("r3", "r1")
    far = port_towards("r1", "r3")
    expected = (
        ("r3", "interfaces", port, "admin"),
        ("r3", "interfaces", port, "oper"),
        ("r3", "interfaces", port, "link_changes"),
        ("r3", "interfaces", "", "interfaces"),
        ("r3", "ospf_neighbors", "", "full"),
        ("r3", "ospf_neighbors", "", "neighbors"),
        ("r3", "ospf_neighbors", loopback("r1"), "state"),
        ("r1", "interfaces", far, "oper"),
        ("r1", "interfaces", far, "link_changes"),
        ("r1", "interfaces", "", "interfaces"),
        ("r1", "ospf_neighbors", "", "full"),
        ("r1", "ospf_neighbors", "", "neighbors"),
        ("r1", "ospf_neighbors", loopback("r3"), "state"),
    )

    def _set(self, lab, state):
        lab.routers["r3"].must("ip", "link", "set", self.port, state)

    def begin(self, lab):
        self._set(lab, "down")

    def during(self, lab, until, wait):
        state = "down"
        while time.monotonic() < until:
            wait(min(4.0, until - time.monotonic()))
            state = "up" if state == "down" else "down"
            self._set(lab, state)

    def end(self, lab):
        self._set(lab, "up")


FAULTS = (
    LinkDown(),
    SessionShut(),
    RouteWithdrawn(),
    UnexpectedPrefix(),
    MtuChanged(),
    HostnameChanged(),
    DaemonRestarted(),
    LinkFlapping(),
)
