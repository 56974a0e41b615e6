"""NumPy for the programs of this folder, or a plain error where it is missing: from require_numpy import np"""

import sys

try:
    import numpy as np  # noqa: F401
except ImportError:
    sys.exit("error: NumPy is missing; install it (on Debian: apt install python3-numpy) and run this with its Python, "
             "/usr/bin/python3")
