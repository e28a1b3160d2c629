"""One thread per process: import first, before numpy and the network runtimes.

CPU times are compared per core, and several processes share the work.
"""

import os

for name in ("OMP_NUM_THREADS", "OPENBLAS_NUM_THREADS", "MKL_NUM_THREADS"):
    os.environ.setdefault(name, "1")
