"""Quality figures of the shipped models, measured through the built library and the command.

Importing this package comes before numpy and the network runtimes: one thread per process, because CPU
times are compared per core and several processes share the work.
"""

import os
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent

for _name in ("OMP_NUM_THREADS", "OPENBLAS_NUM_THREADS", "MKL_NUM_THREADS"):
    os.environ.setdefault(_name, "1")
# The package orvel of this checkout.
if str(ROOT / "python") not in sys.path:
    sys.path.insert(0, str(ROOT / "python"))
