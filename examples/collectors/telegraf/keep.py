"""Started by outputs.execd: keeps what it is given."""

import sys

with open(sys.argv[1], "wb") as file:
    for line in sys.stdin.buffer:
        file.write(line)
        file.flush()
