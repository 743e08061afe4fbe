package main

import (
	"encoding/json"
	"fmt"
	"sort"
	"strconv"
	"strings"
	"time"

	"github.com/openconfig/gnmi/proto/gnmi"
)

// A router answers subscriptions with what was recorded of it. Time is the recording's: a
// sample interval of ten seconds takes every poll that is ten seconds later, not real ones.
type router struct {
	gnmi.UnimplementedGNMIServer
	polls []poll
	pace  time.Duration // real time from poll to poll
}

func (r *router) Subscribe(stream gnmi.GNMI_SubscribeServer) error {
	request, err := stream.Recv()
	if err != nil {
		return err
	}
	list := request.GetSubscribe()
	sent := state{}
	for position, poll := range r.polls {
		for _, subscription := range list.GetSubscription() {
			for _, notification := range sent.due(poll, subscription, list.GetEncoding()) {
				if err := stream.Send(&gnmi.SubscribeResponse{Response: &gnmi.SubscribeResponse_Update{Update: notification}}); err != nil {
					return err
				}
			}
		}
		if position == 0 {
			synced := &gnmi.SubscribeResponse{Response: &gnmi.SubscribeResponse_SyncResponse{SyncResponse: true}}
			if err := stream.Send(synced); err != nil {
				return err
			}
		}
		select {
		case <-time.After(r.pace):
		case <-stream.Context().Done():
			return nil
		}
	}
	// A stream that ended would be taken for a fault, and begun again.
	<-stream.Context().Done()
	return nil
}

// state is what a stream has sent: by subscription the time of the last sample, by leaf the value.
type state struct {
	sampled map[*gnmi.Subscription]time.Time
	values  map[*gnmi.Subscription]map[string]any
}

func (s *state) due(poll poll, subscription *gnmi.Subscription, encoding gnmi.Encoding) []*gnmi.Notification {
	if s.sampled == nil {
		s.sampled = map[*gnmi.Subscription]time.Time{}
		s.values = map[*gnmi.Subscription]map[string]any{}
	}
	if subscription.GetMode() == gnmi.SubscriptionMode_ON_CHANGE {
		return s.changed(poll, subscription, encoding)
	}
	interval := time.Duration(subscription.GetSampleInterval())
	if last, known := s.sampled[subscription]; known && poll.time.Sub(last) < interval {
		return nil
	}
	s.sampled[subscription] = poll.time
	var notifications []*gnmi.Notification
	for place, container := range poll.containers {
		if leaves := selected(container, subscription.GetPath()); len(leaves) > 0 {
			notifications = append(notifications, &gnmi.Notification{
				Timestamp: stamp(poll, place), Update: updates(container.path, leaves, encoding)})
		}
	}
	return notifications
}

// changed answers one leaf an update, below its container as prefix, and the paths that are gone.
func (s *state) changed(poll poll, subscription *gnmi.Subscription, encoding gnmi.Encoding) []*gnmi.Notification {
	before, now := s.values[subscription], map[string]any{}
	var notifications []*gnmi.Notification
	for place, container := range poll.containers {
		var news []*gnmi.Update
		leaves := selected(container, subscription.GetPath())
		for _, name := range sortedNames(leaves) {
			key := pathText(container.path) + "/" + name
			now[key] = leaves[name]
			if old, known := before[key]; !known || old != leaves[name] {
				news = append(news, &gnmi.Update{
					Path: &gnmi.Path{Elem: []*gnmi.PathElem{{Name: name}}}, Val: scalar(leaves[name], encoding)})
			}
		}
		if len(news) > 0 {
			notifications = append(notifications, &gnmi.Notification{
				Timestamp: stamp(poll, place), Prefix: container.path, Update: news})
		}
	}
	var gone []*gnmi.Path
	for _, key := range sortedNames(before) {
		if _, still := now[key]; !still {
			gone = append(gone, parsePath(key))
		}
	}
	if len(gone) > 0 {
		notifications = append(notifications, &gnmi.Notification{
			Timestamp: stamp(poll, len(poll.containers)), Delete: gone})
	}
	s.values[subscription] = now
	return notifications
}

// stamp is in nanoseconds: the poll's second, and a millisecond a container.
func stamp(poll poll, place int) int64 {
	return poll.time.Add(time.Duration(place) * time.Millisecond).UnixNano()
}

// selected answers the leaves of a container that a subscription's path means: all where the path
// ends at or above it, one where it ends with that leaf's name.
func selected(container container, path *gnmi.Path) map[string]any {
	elements := path.GetElem()
	for at, element := range elements {
		if at == len(container.path.Elem) {
			if value, known := container.leaves[element.Name]; known && at == len(elements)-1 {
				return map[string]any{element.Name: value}
			}
			return nil
		}
		own := container.path.Elem[at]
		if element.Name != own.Name {
			return nil
		}
		for key, value := range element.Key {
			if value != "*" && value != own.Key[key] {
				return nil
			}
		}
	}
	return container.leaves
}

// updates answers a container: as one JSON object, or a leaf at a time where the encoding has no
// objects.
func updates(path *gnmi.Path, leaves map[string]any, encoding gnmi.Encoding) []*gnmi.Update {
	if encoding == gnmi.Encoding_PROTO {
		var found []*gnmi.Update
		for _, name := range sortedNames(leaves) {
			at := &gnmi.Path{Elem: append(append([]*gnmi.PathElem{}, path.Elem...), &gnmi.PathElem{Name: name})}
			found = append(found, &gnmi.Update{Path: at, Val: scalar(leaves[name], encoding)})
		}
		return found
	}
	written := map[string]any{}
	for name, value := range leaves {
		written[name] = jsonValue(value)
	}
	return []*gnmi.Update{{Path: path, Val: jsonTyped(written, encoding)}}
}

// jsonValue follows RFC 7951: 64-bit integers are strings, smaller ones and reals here are numbers.
func jsonValue(value any) any {
	switch value := value.(type) {
	case uint64:
		return strconv.FormatUint(value, 10)
	case list:
		return strings.Fields(string(value))
	}
	return value
}

func scalar(value any, encoding gnmi.Encoding) *gnmi.TypedValue {
	if encoding != gnmi.Encoding_PROTO {
		return jsonTyped(jsonValue(value), encoding)
	}
	switch value := value.(type) {
	case list:
		elements := &gnmi.ScalarArray{}
		for _, word := range strings.Fields(string(value)) {
			elements.Element = append(elements.Element,
				&gnmi.TypedValue{Value: &gnmi.TypedValue_StringVal{StringVal: word}})
		}
		return &gnmi.TypedValue{Value: &gnmi.TypedValue_LeaflistVal{LeaflistVal: elements}}
	case uint64:
		return &gnmi.TypedValue{Value: &gnmi.TypedValue_UintVal{UintVal: value}}
	case float64:
		return &gnmi.TypedValue{Value: &gnmi.TypedValue_DoubleVal{DoubleVal: value}}
	}
	return &gnmi.TypedValue{Value: &gnmi.TypedValue_StringVal{StringVal: fmt.Sprint(value)}}
}

func jsonTyped(value any, encoding gnmi.Encoding) *gnmi.TypedValue {
	text, _ := json.Marshal(value)
	if encoding == gnmi.Encoding_JSON_IETF {
		return &gnmi.TypedValue{Value: &gnmi.TypedValue_JsonIetfVal{JsonIetfVal: text}}
	}
	return &gnmi.TypedValue{Value: &gnmi.TypedValue_JsonVal{JsonVal: text}}
}

func sortedNames(values map[string]any) []string {
	names := make([]string, 0, len(values))
	for name := range values {
		names = append(names, name)
	}
	sort.Strings(names)
	return names
}

func pathText(path *gnmi.Path) string {
	text := ""
	for _, element := range path.GetElem() {
		text += "/" + element.Name
		keys := make([]string, 0, len(element.Key))
		for key := range element.Key {
			keys = append(keys, key)
		}
		sort.Strings(keys)
		for _, key := range keys {
			text += "[" + key + "=" + element.Key[key] + "]"
		}
	}
	return text
}
