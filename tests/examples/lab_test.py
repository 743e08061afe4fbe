"""The lab's parsers and poller."""

import json
import sys
import unittest

LAB = sys.argv.pop(1)  # the folder of the lab
sys.dont_write_bytecode = True
sys.path.insert(0, LAB)

import parsers  # noqa: E402
import polling  # noqa: E402


def values(variables):
    return {(item["name"], item.get("interface", "")): item["value"] for item in variables}


def cells(variables, name, columns):
    value = values(variables)[name, ""]
    places = [value["columns"].index(column) for column in columns]
    return [[row[place] for place in places] for row in value["rows"]]


class ParserTest(unittest.TestCase):
    def test_interface_that_is_admin_down_has_no_operational_status(self):
        text = json.dumps({
            "eth1": {"administrativeStatus": "down", "linkUps": 1, "linkDowns": 1, "mtu": 1500,
                     "hardwareAddress": "02:00:00:00:01:01",
                     "ipAddresses": [{"address": "10.0.12.1/30"}]},
            "lo": {"administrativeStatus": "up", "operationalStatus": "up", "linkUps": 0,
                   "linkDowns": 0, "mtu": 65536},
        })
        memory = {}
        parsers.interfaces([text], memory)
        again = parsers.interfaces([text.replace('"linkDowns": 1', '"linkDowns": 3')], memory)
        self.assertEqual(values(again)["oper", "eth1"], "down")
        self.assertEqual(values(again)["oper", "lo"], "up")
        self.assertEqual(values(again)["link_changes", "eth1"], 2)
        self.assertEqual(values(again)["link_changes", "lo"], 0)

    def test_rates_come_with_the_second_poll(self):
        def text(count):
            side = {"bytes": 100 * count, "packets": count, "errors": 0, "dropped": count - 1}
            return json.dumps([{"ifname": "lo", "stats64": {}},
                               {"ifname": "eth1", "stats64": {"rx": side, "tx": side}}])

        memory = {}
        first = values(parsers.traffic([text(1)], memory))
        self.assertIsNone(first["rx_byte_rate", "eth1"])
        self.assertEqual(first["rx_bytes", "eth1"], 100)
        memory["time"] -= 10
        second = values(parsers.traffic([text(11)], memory))
        self.assertAlmostEqual(second["rx_byte_rate", "eth1"], 100, delta=5)
        self.assertEqual(second["tx_lost", "eth1"], 10)
        self.assertNotIn(("rx_bytes", "lo"), second)

    def test_only_selected_routes_and_used_next_hops_count(self):
        text = json.dumps({"10.0.13.0/30": [
            {"protocol": "connected", "metric": 0, "uptime": "00:00:01", "nexthops": []},
            {"protocol": "ospf", "metric": 20, "uptime": "00:00:02", "selected": True, "nexthops": [
                {"fib": True, "ip": "10.0.23.2", "interfaceName": "eth2"},
                {"fib": True, "ip": "10.0.12.1", "interfaceName": "eth1"},
                {"ip": "10.0.99.1", "interfaceName": "eth3"}]}],
            "192.0.2.0/25": [{"protocol": "static", "metric": 0, "uptime": "00:00:02",
                              "selected": True, "nexthops": [{"fib": True}]}]})
        found = parsers.routes([text], {})
        self.assertEqual(cells(found, "routes", ["prefix", "next_hops"]),
                         [["10.0.13.0/30", "10.0.12.1 eth1, 10.0.23.2 eth2"],
                          ["192.0.2.0/25", "null"]])
        self.assertEqual(values(found)["count", "connected"], 0)
        self.assertEqual(values(found)["count", "ospf"], 1)
        self.assertNotIn("uptime", next(item for item in found if item["name"] == "routes")["keys"])


class FakeRouter:
    name = "r1"

    def __init__(self, code, text):
        self.answer = code, text

    def run(self, _):
        return self.answer


class PollerTest(unittest.TestCase):
    def poll(self, source, code, text):
        poller = polling.Poller(FakeRouter(code, text), 3, 1, None)
        found = next(entry for entry in polling.sources("r1") if entry[0] == source)
        return json.loads(poller._poll(source, found[1][:1], found[2], {}))

    def test_failed_or_unreadable_command_gives_a_run_without_variables(self):
        good = json.dumps({"peers": {"10.255.0.2": {
            "remoteAs": 65001, "state": "Idle", "peerUptime": "never",
            "msgRcvd": 0, "msgSent": 0}}})
        for code, text, count in ((0, good, 3), (1, good, 0), (-1, "", 0), (0, "", 0),
                                  (0, "% BGP is not running", 0), (0, "{}", 0)):
            run = self.poll("bgp_summary", code, text)
            self.assertEqual((run["device"], run["source"]), ("r1", "bgp_summary"))
            self.assertEqual(len(run["variables"]), count, (code, text))


if __name__ == "__main__":
    unittest.main()
