"""torch takes gigabytes: its test is there for environments that have it."""

import importlib.util

collect_ignore = [] if importlib.util.find_spec("torch") else ["test_torch.py"]
