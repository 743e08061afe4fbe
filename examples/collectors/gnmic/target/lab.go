package main

import (
	"bufio"
	"compress/gzip"
	"encoding/json"
	"fmt"
	"os"
	"strings"
	"time"

	"github.com/openconfig/gnmi/proto/gnmi"
)

// A poll is what one router said in one round: its containers in the order of the recording.
type poll struct {
	time       time.Time
	containers []container
}

// A container is a node of the tree with its leaves: float64, uint64, string or list.
type container struct {
	path   *gnmi.Path
	leaves map[string]any
}

// A list is a leaf-list, its words divided by spaces, so that two can be compared.
type list string

type run struct {
	Time      int64  `json:"time"`
	Device    string `json:"device"`
	Source    string `json:"source"`
	Variables []struct {
		Name      string          `json:"name"`
		Interface string          `json:"interface"`
		Value     json.RawMessage `json:"value"`
	} `json:"variables"`
}

type table struct {
	Columns []string `json:"columns"`
	Rows    [][]any  `json:"rows"`
}

// readPolls reads the lab's recording: a router's polls, each of which begins with the source
// "system".
func readPolls(file, device string) ([]poll, error) {
	opened, err := os.Open(file)
	if err != nil {
		return nil, err
	}
	defer opened.Close()
	unpacked, err := gzip.NewReader(opened)
	if err != nil {
		return nil, err
	}
	var polls []poll
	lines := bufio.NewScanner(unpacked)
	lines.Buffer(nil, 1<<20)
	for lines.Scan() {
		var entry run
		if err := json.Unmarshal(lines.Bytes(), &entry); err != nil {
			return nil, err
		}
		if entry.Device != device {
			continue
		}
		if entry.Source == "system" {
			polls = append(polls, poll{time: time.Unix(entry.Time, 0)})
		}
		if len(polls) > 0 {
			last := &polls[len(polls)-1]
			last.containers = append(last.containers, containers(entry)...)
		}
	}
	return polls, lines.Err()
}

// containers translates a parser run of the lab into OpenConfig's tree.
func containers(entry run) []container {
	switch entry.Source {
	case "system":
		return append(
			grouped(entry, func(string) string { return "/system/state" },
				map[string]leaf{"host_name": {"hostname", text}, "version": {"software-version", text}}),
			grouped(entry, func(string) string { return "/system/processes/state" },
				map[string]leaf{"daemons": {"daemons", words}})...)
	case "interfaces":
		return grouped(entry, func(name string) string { return "/interfaces/interface[name=" + name + "]/state" },
			map[string]leaf{"admin": {"admin-status", upper}, "oper": {"oper-status", upper}, "mtu": {"mtu", number}})
	case "traffic":
		return append(grouped(entry, func(name string) string {
			return "/interfaces/interface[name=" + name + "]/state/counters"
		}, map[string]leaf{"rx_bytes": {"in-octets", counter}, "tx_bytes": {"out-octets", counter},
			"rx_lost": {"in-discards", counter}, "tx_lost": {"out-discards", counter}}),
			grouped(entry, func(name string) string {
				return "/interfaces/interface[name=" + name + "]/rates/state"
			}, map[string]leaf{"rx_byte_rate": {"in-rate", number}, "tx_byte_rate": {"out-rate", number}})...)
	case "bgp_summary":
		neighbor := "/network-instances/network-instance[name=default]/protocols/" +
			"protocol[identifier=BGP][name=BGP]/bgp/neighbors/neighbor[neighbor-address="
		return append(
			grouped(entry, func(name string) string { return neighbor + name + "]/state" },
				map[string]leaf{"state": {"session-state", upper}}),
			grouped(entry, func(name string) string {
				return neighbor + name + "]/afi-safis/afi-safi[afi-safi-name=IPV4_UNICAST]/state/prefixes"
			}, map[string]leaf{"prefixes_received": {"received", number}, "prefixes_sent": {"sent", number}})...)
	case "ospf_neighbors":
		return grouped(entry, func(name string) string {
			return "/network-instances/network-instance[name=default]/protocols/" +
				"protocol[identifier=OSPF][name=OSPF]/ospfv2/areas/area[identifier=0.0.0.0]/neighbors/" +
				"neighbor[router-id=" + name + "]/state"
		}, map[string]leaf{"state": {"adjacency-state", upper}})
	case "routes":
		return routes(entry)
	}
	return nil
}

// A leaf is a variable's name in the tree, and how its value is read.
type leaf struct {
	name string
	read func(json.RawMessage) any
}

func text(value json.RawMessage) any {
	var read string
	json.Unmarshal(value, &read)
	return read
}

func words(value json.RawMessage) any {
	return list(text(value).(string))
}

// upper takes the first word: "Full/-" is FULL, "Idle (Admin)" is IDLE.
func upper(value json.RawMessage) any {
	word := text(value).(string)
	if end := strings.IndexAny(word, "/ "); end >= 0 {
		word = word[:end]
	}
	return strings.ToUpper(word)
}

func number(value json.RawMessage) any {
	var read float64
	json.Unmarshal(value, &read)
	return read
}

func counter(value json.RawMessage) any {
	var read uint64
	json.Unmarshal(value, &read)
	return read
}

// grouped puts the variables of one interface into one container.
func grouped(entry run, path func(string) string, leaves map[string]leaf) []container {
	var found []container
	place := map[string]int{}
	for _, variable := range entry.Variables {
		leaf, wanted := leaves[variable.Name]
		if !wanted {
			continue
		}
		at, known := place[variable.Interface]
		if !known {
			at = len(found)
			place[variable.Interface] = at
			found = append(found, container{parsePath(path(variable.Interface)), map[string]any{}})
		}
		found[at].leaves[leaf.name] = leaf.read(variable.Value)
	}
	return found
}

func routes(entry run) []container {
	var found []container
	for _, variable := range entry.Variables {
		var read table
		if variable.Name != "routes" || json.Unmarshal(variable.Value, &read) != nil {
			continue
		}
		for _, row := range read.Rows {
			found = append(found, container{
				parsePath(fmt.Sprintf("/network-instances/network-instance[name=default]/afts/"+
					"ipv4-unicast/ipv4-entry[prefix=%v]/state", row[0])),
				map[string]any{"prefix": row[0], "origin-protocol": strings.ToUpper(row[1].(string))}})
		}
	}
	return found
}

// parsePath reads /name[key=value]…/…, without escapes, which the lab has no need of.
func parsePath(path string) *gnmi.Path {
	parsed := &gnmi.Path{}
	for path != "" {
		end, depth := len(path), 0
		for at := 1; at < len(path); at++ {
			switch {
			case path[at] == '[':
				depth++
			case path[at] == ']':
				depth--
			case path[at] == '/' && depth == 0:
				end = at
			}
			if end == at {
				break
			}
		}
		name, keys, _ := strings.Cut(path[1:end], "[")
		element := &gnmi.PathElem{Name: name}
		for _, pair := range strings.Split(strings.TrimSuffix(keys, "]"), "][") {
			if key, value, found := strings.Cut(pair, "="); found {
				if element.Key == nil {
					element.Key = map[string]string{}
				}
				element.Key[key] = value
			}
		}
		parsed.Elem = append(parsed.Elem, element)
		path = path[end:]
	}
	return parsed
}
