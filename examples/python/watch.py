"""A watch over three devices, cell by cell: run it whole, or step by step in an editor.

What the parsers give is made up here, so that it runs anywhere: each function stands for
one that logs in to a device.
"""

# %% Data in the shapes that parsers give.
import random
import tempfile
from typing import Any

import keelstone

chance = random.Random(7)
START = 1_700_000_000


def textfsm_bgp_summary(device: str, poll: int) -> list[dict[str, Any]]:
    """A list of dictionaries, one a neighbour."""
    broken = device == "r2" and poll >= 40
    return [
        {"neighbor": "10.0.12.2", "as": 65002, "state": "Idle" if broken else "Established"},
        {"neighbor": "10.0.13.3", "as": 65003, "state": "Established"},
    ]


def napalm_get_interfaces(device: str, poll: int) -> dict[str, dict[str, Any]]:
    """Dictionaries by interface."""
    return {
        "eth0": {"is_up": True, "speed": 1000.0, "load": round(chance.uniform(0.2, 0.4), 3)},
        "eth1": {"is_up": device != "r3" or poll < 41, "speed": 100.0, "load": 0.0},
    }


def genie_routing(device: str, poll: int) -> dict[str, Any]:
    """Dictionaries in dictionaries, with a table in them."""
    routes = [{"prefix": f"10.{n}.0.0/16", "via": "10.0.12.2", "age": poll} for n in range(4)]
    if poll == 42:
        del routes[1]
    return {"vrf": {"default": {"address_family": {"ipv4": {"routes": routes}}}}}


# %% Forty polls of a quiet network: nothing is configured, everything is learned.
folder = tempfile.TemporaryDirectory()
domain = keelstone.open(folder.name)


def poll_all(poll: int) -> list[keelstone.Alert]:
    """One poll of every device; what was found."""
    time = START + poll * 7200
    found: list[keelstone.Alert] = []
    for device in ("r1", "r2", "r3"):
        results = [
            domain.evaluate(
                device, "bgp", textfsm_bgp_summary(device, poll), interface="neighbor", time=time
            ),
            domain.evaluate(
                device, "interfaces", napalm_get_interfaces(device, poll), time=time
            ),
            domain.evaluate(
                device, "routing", genie_routing(device, poll),
                keys={"routes": ["prefix", "via"]}, time=time,
            ),
        ]  # fmt: skip
        for result in results:
            found += result.alerts
    return found


quiet = [alert for poll in range(40) for alert in poll_all(poll)]
print(f"{len(quiet)} alerts in 40 quiet polls")

# %% Then things happen.
for poll in range(40, 43):
    for alert in poll_all(poll):
        print(f"poll {poll}: {alert.device}: {alert.sentence}")

# %% A value that should not be learned can be looked at all the same.
probe = domain.evaluate(
    "r1", "bgp", [{"neighbor": "10.0.12.2", "state": "Active"}],
    interface="neighbor", time=START + 43 * 7200, store=False,
)  # fmt: skip
print(probe)

# %% Everything is on disk after this.
domain.close()
folder.cleanup()
