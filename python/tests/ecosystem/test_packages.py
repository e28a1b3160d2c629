"""The notebook, and a data set's map, as the documents show them."""

import re
from pathlib import Path

import nbformat
import numpy as np
from nbclient import NotebookClient

ROOT = Path(__file__).resolve().parents[3]


def test_the_notebook_runs(tmp_path):
    notebook = nbformat.read(ROOT / "examples" / "corpus.ipynb", as_version=4)
    assert not any(cell.get("outputs") for cell in notebook.cells)
    NotebookClient(notebook, timeout=300, kernel_name="python3", resources={"metadata": {"path": tmp_path}}).execute()
    printed = [out.get("text", "") for cell in notebook.cells for out in cell.get("outputs", [])]
    assert any("quieter" in text for text in printed)


def block_of_the_document(package):
    text = (ROOT / "docs" / "python.md").read_text()
    code = next(block for block in re.findall(r"```python\n(.*?)```", text, re.S) if f"import {package}" in block)
    return compile(code, "docs/python.md", "exec")


def test_a_data_sets_map_from_the_documents():
    names = {"noisy": (0.05 * np.random.default_rng(1).standard_normal((3, 16000))).astype(np.float32)}
    exec(block_of_the_document("datasets"), names)
    cleaned = np.array(names["dataset"]["audio"])
    assert cleaned.shape == (3, 16000) and np.std(cleaned) < 0.5 * np.std(names["noisy"])
