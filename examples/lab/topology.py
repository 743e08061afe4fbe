"""Who is joined to whom in the lab, with which addresses, and how each router is configured."""

DAEMONS = ("zebra", "staticd", "ospfd", "bgpd")
NAMES = ("r1", "r2", "r3", "r4")
INTERNAL_AS = 65001
EXTERNAL_AS = 65002

# (router, interface, router, interface, bits per second of the shaper or None)
LINKS = (
    ("r1", "eth1", "r2", "eth1", None),
    ("r1", "eth2", "r3", "eth1", None),
    ("r2", "eth2", "r3", "eth2", 4_000_000),
    ("r2", "eth3", "r4", "eth1", 2_000_000),
    ("r3", "eth3", "r4", "eth2", 1_000_000),
)

# (from, to): a steady stream of pings between the loopback addresses
STREAMS = (
    ("r1", "r2"),
    ("r1", "r3"),
    ("r1", "r4"),
    ("r2", "r3"),
    ("r2", "r4"),
    ("r3", "r4"),
)

PROBED = {"r1": ("r2", "r4"), "r2": ("r3", "r4"), "r3": ("r1", "r4"), "r4": ("r1",)}


def number(name):
    return int(name[1:])


def loopback(name):
    return f"10.255.0.{number(name)}"


def autonomous_system(name):
    return EXTERNAL_AS if name == "r4" else INTERNAL_AS


def link_address(name, other):
    low, high = sorted((number(name), number(other)))
    return f"10.0.{low}{high}.{1 if number(name) == low else 2}"


def links_of(name):
    """(own interface, other router, shaper) of each link of a router."""
    for left, left_port, right, right_port, rate in LINKS:
        if name == left:
            yield left_port, right, rate
        elif name == right:
            yield right_port, left, rate


def port_towards(name, other):
    return next(port for port, neighbor, _ in links_of(name) if neighbor == other)


def zebra_config(name):
    lines = [f"hostname {name}", "interface lo", f" ip address {loopback(name)}/32", "exit"]
    for port, other, _ in links_of(name):
        lines += [
            f"interface {port}",
            f" description to {other}",
            f" ip address {link_address(name, other)}/30",
            "exit",
        ]
    return lines


STATIC_ROUTES = {
    "r1": ["ip route 198.51.100.0/24 Null0"],
    "r2": ["ip route 10.99.2.0/24 Null0"],
    "r3": ["ip route 10.99.3.0/24 10.0.34.2"],
    "r4": ["ip route 203.0.113.0/24 Null0", "ip route 192.0.2.0/25 Null0"],
}

# The border routers announce loopbacks of their AS, which they know from OSPF.
ANNOUNCED = {
    "r1": ["198.51.100.0/24"],
    "r2": ["10.255.0.1/32", "10.255.0.2/32"],
    "r3": ["10.255.0.1/32", "10.255.0.3/32"],
    "r4": ["10.255.0.4/32", "203.0.113.0/24", "192.0.2.0/25"],
}


def staticd_config(name):
    return [f"hostname {name}", *STATIC_ROUTES[name]]


def ospfd_config(name):
    lines = [f"hostname {name}"]
    if autonomous_system(name) != INTERNAL_AS:
        return lines
    for port, other, _ in links_of(name):
        if autonomous_system(other) == INTERNAL_AS:
            lines += [
                f"interface {port}",
                " ip ospf area 0",
                " ip ospf network point-to-point",
                " ip ospf hello-interval 5",
                " ip ospf dead-interval 20",
                "exit",
            ]
    lines += [
        "interface lo",
        " ip ospf area 0",
        "exit",
        "router ospf",
        f" ospf router-id {loopback(name)}",
        *([" redistribute static"] if name != "r1" else []),
        " timers throttle spf 50 200 2000",
        "exit",
    ]
    return lines


def bgp_neighbors(name):
    """(address, router) of each BGP session: loopbacks inside an AS, links between the two."""
    own = autonomous_system(name)
    for other in NAMES:
        if other != name and autonomous_system(other) == own:
            yield loopback(other), other
    for _, other, _ in links_of(name):
        if autonomous_system(other) != own:
            yield link_address(other, name), other


def bgpd_config(name):
    own = autonomous_system(name)
    lines = [
        f"hostname {name}",
        f"router bgp {own}",
        f" bgp router-id {loopback(name)}",
        " no bgp ebgp-requires-policy",
        # Without this the older of two equal paths wins, and the routes depend on past faults.
        " bgp bestpath compare-routerid",
        " timers bgp 5 20",
    ]
    internal = []
    for address, other in bgp_neighbors(name):
        remote = autonomous_system(other)
        lines += [
            f" neighbor {address} remote-as {remote}",
            f" neighbor {address} description {other}",
            f" neighbor {address} timers connect 3",
            f" neighbor {address} advertisement-interval 1",
        ]
        if remote == own:
            lines.append(f" neighbor {address} update-source {loopback(name)}")
            internal.append(address)
    # One path each, or a link that goes and comes back changes which of two the kernel hashes to.
    lines += [" address-family ipv4 unicast", "  maximum-paths 1", "  maximum-paths ibgp 1"]
    lines += [f"  network {prefix}" for prefix in ANNOUNCED[name]]
    lines += [f"  neighbor {address} next-hop-self" for address in internal]
    lines += [" exit-address-family", "exit"]
    return lines


CONFIGS = {
    "zebra": zebra_config,
    "staticd": staticd_config,
    "ospfd": ospfd_config,
    "bgpd": bgpd_config,
}
