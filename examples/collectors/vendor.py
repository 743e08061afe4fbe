"""What FRR's answers look like on another vendor's command line.

FRR's commands come from the same school; its texts get the other's header and columns here. The
values stay those of the routers.
"""

import re


def bgp_summary(text):
    """`show ip bgp summary` without what only FRR writes: VRF, prefixes sent, description."""
    lines = []
    for line in text.splitlines():
        line = re.sub(r" vrf-id \d+$", "", line)
        line = re.sub(r"^BGP table version (\d+)$",
                      r"BGP table version is \1, main routing table version \1", line)
        if line.startswith("Neighbor"):
            line = re.sub(r"\s+PfxSnt Desc$", "", line)
        elif re.match(r"\d+\.\d+\.\d+\.\d+ ", line):
            line = re.sub(r"\s+\d+ \S+$", "", line)
        lines.append(line)
    return "\n".join(lines) + "\n"


def _hardware_address(text):
    digits = text.replace(":", "")
    return f"{digits[:4]}.{digits[4:8]}.{digits[8:]}"


def _counters(ifconfig):
    """name -> numbers in the order of ifconfig: packets, bytes, errors, dropped… in, then out."""
    found = {}
    for block in ifconfig.strip().split("\n\n"):
        lines = re.findall(r"^ +([RT])X (packets|errors)(.*)$", block, flags=re.M)
        found[block.split(":")[0]] = {
            side + kind: [int(number) for number in
                          re.findall(r" (\d+)", re.sub(r"\(.*?\)", "", rest))]
            for side, kind, rest in lines}
    return found


def interface_name(name):
    return "Loopback0" if name == "lo" else f"Ethernet0/{name.removeprefix('eth')}"


def interfaces(show_interface, ifconfig):
    """`show interfaces` of the states in FRR's `show interface` and the counters in ifconfig."""
    counters = _counters(ifconfig)
    blocks = []
    for block in re.split(r"^(?=Interface )", show_interface, flags=re.M)[1:]:
        name, admin = re.match(r"Interface (\S+) is (up|down)", block).groups()
        carrier = "line protocol is up" in block
        status = "up" if carrier else "down" if admin == "up" else "administratively down"
        mac = re.search(r"HWaddr: (\S+)", block)
        description = re.search(r"Description: (.+)", block)
        mtu, speed = re.search(r"mtu (\d+) speed (\d+)", block).groups()
        count = counters.get(name, {"Rpackets": [0, 0], "Rerrors": [0, 0, 0, 0],
                                    "Tpackets": [0, 0], "Terrors": [0, 0, 0, 0, 0]})
        hardware = (f"Ethernet, address is {_hardware_address(mac[1])} "
                    f"(bia {_hardware_address(mac[1])})" if mac else "Loopback")
        protocol = "up" if carrier else "down"
        lines = [f"{interface_name(name)} is {status}, line protocol is {protocol} ",
                 f"  Hardware is {hardware}"]
        if description:
            lines.append(f"  Description: {description[1]}")
        lines += [
            f"  Internet address is {re.search(r'inet (.+)', block)[1].strip()}",
            f"  MTU {mtu} bytes, BW {int(speed) * 1000} Kbit/sec, DLY 1000 usec, ",
            "     reliability 255/255, txload 1/255, rxload 1/255",
            f"  Encapsulation {'ARPA' if mac else 'LOOPBACK'}, loopback not set",
            f"     {count['Rpackets'][0]} packets input, {count['Rpackets'][1]} bytes, 0 no buffer",
            "     Received 0 broadcasts (0 IP multicasts)",
            "     0 runts, 0 giants, 0 throttles ",
            f"     {count['Rerrors'][0]} input errors, 0 CRC, {count['Rerrors'][3]} frame, "
            f"{count['Rerrors'][2]} overrun, 0 ignored",
            f"     {count['Tpackets'][0]} packets output, {count['Tpackets'][1]} bytes, "
            "0 underruns",
            f"     {count['Terrors'][0]} output errors, {count['Terrors'][4]} collisions, "
            "0 interface resets",
        ]
        blocks.append("\n".join(lines) + "\n")
    return "".join(blocks)


def bgp_all_summary(text):
    summary = bgp_summary(text)
    return "For address family: IPv4 Unicast\n" + summary[summary.index("BGP router"):]


def bgp_neighbors(text):
    """`show bgp ipv4 unicast neighbors`: what of it `show ip bgp summary` of FRR knows."""
    own = re.search(r"local AS number (\d+)", text)[1]
    blocks = []
    for row in re.findall(r"^\d+\.\d+\.\d+\.\d+ .*$", text, flags=re.M):
        address, _, remote, *_, up_down = row.split()[:9]
        state, sent, description = re.search(r" (\d+|\S+ \(\S+\)|\S+) +(\d+) (\S+)\s*$", row).groups()
        established = state.isdigit()
        link = "internal" if own == remote else "external"
        router = f"10.255.0.{description[1:]}" if established else "0.0.0.0"
        name = "Established" if established else state.split()[0]
        blocks.append("\n".join([
            f"BGP neighbor is {address},  remote AS {remote}, {link} link",
            f"  Description: {description}",
            f"  BGP version 4, remote router ID {router}",
            f"  BGP state = {name}" + (f", up for {up_down}" if established else ""),
            " For address family: IPv4 Unicast",
            f"    Prefixes Current: {sent:>14} {state if established else 0:>10}",
            "                                   Outbound    Inbound",
            "  Local Policy Denied Prefixes:    --------    -------",
        ]) + "\n")
    return "".join(blocks)


def ospf_neighbors(text):
    """`show ip ospf neighbor` without FRR's up time and lists."""
    lines = ["Neighbor ID     Pri   State           Dead Time   Address         Interface"]
    for row in re.findall(r"^\d+\.\d+\.\d+\.\d+ .*$", text, flags=re.M):
        router, priority, state, *_, dead, address, port = row.split()[:7]
        seconds = int(float(dead.removesuffix("s")))
        lines.append(f"{router:15} {priority:>3}   {state.upper().replace('/', '/  '):15} "
                     f"00:00:{seconds:02}    {address:15} {interface_name(port.split(':')[0])}")
    return "\n".join(lines) + "\n"


def rounds(entries):
    """(time, device, {command: text}) for each poll of a router, from the kept texts."""
    current = None
    for entry in entries:
        key = entry["time"], entry["device"]
        if current is None or current[0] != key:
            if current is not None:
                yield *current[0], current[1]
            current = key, {}
        current[1][entry["command"]] = entry["text"]
    if current is not None:
        yield *current[0], current[1]
