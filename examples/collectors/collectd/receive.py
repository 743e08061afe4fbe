"""Takes what collectd posts on 127.0.0.1:8080 and appends each body to a file, one a line."""

import http.server
import sys


class Receiver(http.server.BaseHTTPRequestHandler):
    def do_POST(self):
        body = self.rfile.read(int(self.headers["Content-Length"]))
        with open(sys.argv[1], "ab") as file:
            file.write(body + b"\n")
        self.send_response(200)
        self.end_headers()

    def log_message(self, *_):
        pass


http.server.HTTPServer(("127.0.0.1", 8080), Receiver).serve_forever()
