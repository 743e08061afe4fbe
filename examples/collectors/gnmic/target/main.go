// Command lab-target serves what the lab has recorded of its routers over gNMI, and prints what it
// answers as events, for a collector to be tried on it.
//
//	lab-target serve RECORDING r1=127.0.0.1:57401 r2=127.0.0.2:57401
//	lab-target events FOLDER r1=127.0.0.1:57401 r2=127.0.0.2:57401
package main

import (
	"fmt"
	"log"
	"net"
	"os"
	"strings"
	"time"

	"github.com/openconfig/gnmi/proto/gnmi"
	"google.golang.org/grpc"
)

const pace = 10 * time.Millisecond

func main() {
	log.SetFlags(0)
	if len(os.Args) < 3 {
		log.Fatal("usage: lab-target serve RECORDING NAME=ADDRESS… | events FOLDER NAME=ADDRESS…")
	}
	var err error
	switch os.Args[1] {
	case "serve":
		err = serve(os.Args[2], os.Args[3:])
	case "events":
		err = events(os.Args[2], os.Args[3:])
	default:
		err = fmt.Errorf("no command %s", os.Args[1])
	}
	if err != nil {
		log.Fatal(err)
	}
}

func serve(recording string, routers []string) error {
	failures := make(chan error)
	for _, pair := range routers {
		name, address, _ := strings.Cut(pair, "=")
		polls, err := readPolls(recording, name)
		if err != nil {
			return err
		}
		listener, err := net.Listen("tcp", address)
		if err != nil {
			return err
		}
		server := grpc.NewServer()
		gnmi.RegisterGNMIServer(server, &router{polls: polls, pace: pace})
		go func() { failures <- server.Serve(listener) }()
	}
	fmt.Println("ready")
	return <-failures
}
