"""The parts of the library that need no GL context, for hosts of one's own.

Everything is named as in C++. Curves, the graph, transforms and files lie here; what nodes make of their
texts and numbers lies in modules named as C++'s folders: `time`.
"""

from ._quorvel.core import *
from ._quorvel.core import time as time
