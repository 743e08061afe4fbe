"""Says where this interpreter looks for packages below a prefix, relative to it.

usage: site_folder.py PREFIX
"""

import os
import re
import sys
import sysconfig

prefix = os.path.realpath(sys.argv[1])
below = [os.path.relpath(os.path.realpath(folder), prefix) for folder in sys.path]
own = [path for path in below if re.fullmatch(r"lib/python[\d.]*/(site|dist)-packages", path)]
bare = {"base": "", "platbase": "", "installed_base": "", "installed_platbase": ""}
# That of a virtual environment, or of an interpreter that is built for the prefix.
others = sysconfig.get_path("platlib", "posix_prefix", bare).lstrip("/")
print(own[0] if own else others)
