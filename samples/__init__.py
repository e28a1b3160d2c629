"""The demo, its recording, and the page on tuning keys."""

import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
# The package orvel of this checkout.
if str(ROOT / "python") not in sys.path:
    sys.path.insert(0, str(ROOT / "python"))
