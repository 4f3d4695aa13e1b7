"""Runs the notebooks of a folder from top to bottom, each in a kernel of this interpreter; fails with the cell that fails."""
import os
import sys
import tempfile
from pathlib import Path

import nbformat
from nbclient import NotebookClient
from nbclient.exceptions import CellExecutionError

notebooks = sorted(Path(sys.argv[1]).glob("*.ipynb"))
if not notebooks:
    sys.exit(f"notebooks: {sys.argv[1]} has none")
with tempfile.TemporaryDirectory(prefix="tarnwick-notebooks-") as folder:
    for name in ("IPYTHONDIR", "JUPYTER_RUNTIME_DIR", "JUPYTER_CONFIG_DIR", "JUPYTER_DATA_DIR"):
        os.environ[name] = folder
    os.environ["MPLBACKEND"] = "module://matplotlib_inline.backend_inline"
    for path in notebooks:
        notebook = nbformat.read(path, as_version=4)
        nbformat.validate(notebook)
        if any(cell.get("outputs") for cell in notebook.cells):
            sys.exit(f"notebooks: {path.name} holds outputs; expected none, which would grow old")
        try:
            NotebookClient(notebook, timeout=300, kernel_name="python3", resources={"metadata": {"path": folder}}).execute()
        except CellExecutionError as failure:
            sys.exit(f"notebooks: {path.name}: {failure}")
        outputs = [output for cell in notebook.cells for output in cell.get("outputs", [])]
        pictures = sum("image/png" in output.get("data", {}) for output in outputs)
        for output in outputs if "--print" in sys.argv else []:
            print(output.get("text") or output.get("data", {}).get("text/plain", ""))
        if pictures == 0:
            sys.exit(f"notebooks: {path.name} draws no picture")
        print(f"notebooks: {path.name} ran, {pictures} pictures")
