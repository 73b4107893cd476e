"""Prints the folder of a prefix for Python packages: one that this Python looks into, else where its own would be."""

import site
import sys
import sysconfig

prefix = sys.argv[1].rstrip("/")
known = [folder for folder in site.getsitepackages() if folder.startswith(prefix + "/lib/")]
print(known[0] if known else sysconfig.get_path("purelib", "posix_prefix", {"base": prefix}))
