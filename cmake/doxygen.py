#!/usr/bin/env python3
"""Makes the reference; fails at any warning, and where a class, an enumeration or a type of a
namespace has no comment. Functions and members whose names say all need none.

usage: doxygen.py DOXYFILE
"""
import re
import subprocess
import sys

PLAIN = re.compile(r"Member .* \(((function|variable|friend|enumvalue|macro definition)\) of .*|"
                   r"typedef\) of (class|struct) .*) is not documented")


def main():
    doxyfile = open(sys.argv[1], encoding="utf-8").read()
    made = subprocess.run(["doxygen", sys.argv[1]], check=False).returncode
    strict = doxyfile + "WARN_IF_UNDOCUMENTED = YES\nWARN_AS_ERROR = NO\n"
    told = subprocess.run(["doxygen", "-"], input=strict, text=True, check=False, stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT).stdout.splitlines()
    if not any(PLAIN.search(line) for line in told):
        sys.exit("doxygen.py: doxygen tells of no member without a comment; it saw nothing")
    bare = [line for line in told if "warning:" in line and not PLAIN.search(line)]
    print(*bare, sep="\n", end="\n" if bare else "")
    sys.exit(1 if made or bare else 0)


if __name__ == "__main__":
    main()
