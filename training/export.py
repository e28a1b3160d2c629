"""Writing of a trained model: the weight file and the control file that names it."""

from __future__ import annotations

import os
from pathlib import Path

from training.weights_file import write_weights


def control_text(name: str, config: dict) -> str:
    """Text of the control file: a comment, the weight file, the tuning keys."""
    lines = [f"# {config['model'].get('title', name)}", f"WEIGHT {name}.bin"]
    lines += [f"{key} {value}" for key, value in config.get("keys", {}).items()]
    return "\n".join(lines) + "\n"


def export_model(folder: str | Path, config: dict, entries: dict) -> Path:
    """Write NAME.bin and NAME.ctl into ``folder``; returns the path of the weight file."""
    folder = Path(folder)
    folder.mkdir(parents=True, exist_ok=True)
    name = config["model"]["name"]
    write_weights(folder / f"{name}.bin", entries)
    temporary = folder / f"{name}.ctl.tmp"
    temporary.write_text(control_text(name, config))
    os.replace(temporary, folder / f"{name}.ctl")
    return folder / f"{name}.bin"
