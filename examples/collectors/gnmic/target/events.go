package main

import (
	"context"
	"encoding/json"
	"fmt"
	"maps"
	"os"
	"path/filepath"
	"strings"
	"sync"
	"time"

	"github.com/openconfig/gnmi/proto/gnmi"
	"google.golang.org/grpc"
	"google.golang.org/grpc/credentials/insecure"
)

// The subscriptions of ../gnmic.yaml.
var subscriptions = map[string]struct {
	mode     gnmi.SubscriptionMode
	interval time.Duration
	paths    []string
}{
	"counters": {gnmi.SubscriptionMode_SAMPLE, 10 * time.Second, []string{
		"/interfaces/interface/state/counters", "/interfaces/interface/rates/state",
		"/network-instances/network-instance/protocols/protocol/bgp/neighbors/neighbor/afi-safis/afi-safi/state/prefixes",
		"/system/processes/state"}},
	"states": {gnmi.SubscriptionMode_ON_CHANGE, 0, []string{
		"/system", "/interfaces/interface/state/admin-status", "/interfaces/interface/state/oper-status",
		"/interfaces/interface/state/mtu", "/network-instances/network-instance/afts",
		"/network-instances/network-instance/protocols/protocol/bgp/neighbors/neighbor/state/session-state",
		"/network-instances/network-instance/protocols/protocol/ospfv2/areas/area/neighbors"}},
}

// An event is laid out as gNMIc's format "event" is.
type event struct {
	Name      string            `json:"name,omitempty"`
	Timestamp int64             `json:"timestamp,omitempty"`
	Tags      map[string]string `json:"tags,omitempty"`
	Values    map[string]any    `json:"values,omitempty"`
	Deletes   []string          `json:"deletes,omitempty"`
}

// A sink writes responses as gNMIc does: an indented array each, as to a terminal, an array a line,
// as to a file, and an event a line, as with "split-events".
type sink struct {
	lock                     sync.Mutex
	indented, arrays, single *os.File
}

func (s *sink) write(found []event) {
	s.lock.Lock()
	defer s.lock.Unlock()
	text, _ := json.MarshalIndent(found, "", "  ")
	fmt.Fprintf(s.indented, "%s\n", text)
	text, _ = json.Marshal(found)
	fmt.Fprintf(s.arrays, "%s\n", text)
	for _, one := range found {
		text, _ = json.Marshal(one)
		fmt.Fprintf(s.single, "%s\n", text)
	}
}

// events subscribes to routers and writes into a folder until it is ended.
func events(folder string, routers []string) error {
	var written sink
	for name, file := range map[string]**os.File{
		"stdout.json": &written.indented, "arrays.jsonl": &written.arrays, "events.jsonl": &written.single} {
		opened, err := os.Create(filepath.Join(folder, name))
		if err != nil {
			return err
		}
		*file = opened
	}
	failures := make(chan error)
	for _, pair := range routers {
		name, address, _ := strings.Cut(pair, "=")
		connection, err := grpc.NewClient(address, grpc.WithTransportCredentials(insecure.NewCredentials()))
		if err != nil {
			return err
		}
		for subscription := range subscriptions {
			go func() { failures <- follow(connection, name, subscription, &written) }()
		}
	}
	return <-failures
}

func follow(connection *grpc.ClientConn, router, subscription string, written *sink) error {
	stream, err := gnmi.NewGNMIClient(connection).Subscribe(context.Background())
	if err != nil {
		return err
	}
	wanted := &gnmi.SubscriptionList{Encoding: gnmi.Encoding_JSON_IETF}
	for _, path := range subscriptions[subscription].paths {
		wanted.Subscription = append(wanted.Subscription, &gnmi.Subscription{
			Path: parsePath(path), Mode: subscriptions[subscription].mode,
			SampleInterval: uint64(subscriptions[subscription].interval)})
	}
	err = stream.Send(&gnmi.SubscribeRequest{Request: &gnmi.SubscribeRequest_Subscribe{Subscribe: wanted}})
	tags := map[string]string{"source": router, "subscription-name": subscription}
	for err == nil {
		var response *gnmi.SubscribeResponse
		if response, err = stream.Recv(); err == nil && response.GetUpdate() != nil {
			written.write(converted(response.GetUpdate(), subscription, tags))
		}
	}
	return err
}

// converted gives each update an event of its own, and all deletes of a notification one.
func converted(notification *gnmi.Notification, name string, tags map[string]string) []event {
	var found []event
	prefix, prefixKeys := namesAndKeys(notification.GetPrefix())
	for _, update := range notification.GetUpdate() {
		path, keys := namesAndKeys(update.GetPath())
		var value any
		json.Unmarshal(update.GetVal().GetJsonIetfVal(), &value)
		one := event{Name: name, Timestamp: notification.Timestamp,
			Tags: map[string]string{}, Values: map[string]any{}}
		for _, some := range []map[string]string{prefixKeys, keys, tags} {
			maps.Copy(one.Tags, some)
		}
		flatten(prefix+path, value, one.Values)
		found = append(found, one)
	}
	if len(notification.GetDelete()) > 0 {
		one := event{Name: name, Timestamp: notification.Timestamp, Tags: maps.Clone(tags)}
		for _, path := range notification.GetDelete() {
			one.Deletes = append(one.Deletes, pathText(path))
		}
		found = append(found, one)
	}
	return found
}

// namesAndKeys takes the keys out of a path: element and key name, joined, to their value.
func namesAndKeys(path *gnmi.Path) (string, map[string]string) {
	names, keys := "", map[string]string{}
	for _, element := range path.GetElem() {
		names += "/" + element.Name
		for key, value := range element.Key {
			keys[element.Name+"_"+key] = value
		}
	}
	return names, keys
}

// flatten divides the members of an object with a slash, the elements of a list with a point. A
// list that is not inside an object stays one.
func flatten(path string, value any, into map[string]any) {
	object, is := value.(map[string]any)
	if !is {
		into[path] = value
		return
	}
	for name, member := range object {
		flattenMember(path+"/"+name, member, into)
	}
}

func flattenMember(path string, value any, into map[string]any) {
	elements, is := value.([]any)
	if !is {
		flatten(path, value, into)
		return
	}
	for position, element := range elements {
		flattenMember(fmt.Sprintf("%s.%d", path, position), element, into)
	}
}
