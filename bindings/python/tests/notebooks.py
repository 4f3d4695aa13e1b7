"""Runs the notebooks of a folder from top to bottom, each in a kernel of this interpreter; fails with the cell that fails.

    notebooks.py NOTEBOOKS DOCS [--print] [--pictures]

The pictures that they draw have to be the ones that python.md of DOCS shows, DOCS/images/NAME-1.png and so on;
--pictures writes them there.
"""
import base64
import io
import os
import sys
import tempfile
from pathlib import Path

import nbformat
import numpy as np
from nbclient import NotebookClient
from nbclient.exceptions import CellExecutionError
from PIL import Image

# [of 255] A pixel at half the size is another one. The palette of what is kept makes up to 16.
OTHER_SHADE = 32
# Of the pixels. A capture of another seed, or a line with 0.5 dB more loss, changes 0.9 % and more, the palette none.
LARGEST_SHARE = 0.005


def difference(kept, drawn):
    """The share of the pixels that differ, at half the size of what is kept."""
    kept, drawn = (Image.open(io.BytesIO(png)).convert("L") for png in (kept, drawn))
    size = (kept.width // 2, kept.height // 2)
    shades = [np.asarray(picture.resize(size, Image.Resampling.BOX), float) for picture in (kept, drawn)]
    return np.mean(np.abs(shades[0] - shades[1]) > OTHER_SHADE)


def save(path, png):
    """In colours of a palette: a third of the size, and no eye sees it."""
    Image.open(io.BytesIO(png)).convert("RGB").quantize(256, dither=Image.Dither.NONE).save(path, optimize=True)


def compare(images, name, pictures, page):
    """What is wrong with the files of a notebook's pictures; None: nothing."""
    names = [f"{name}-{k}.png" for k in range(1, len(pictures) + 1)]
    there = sorted(path.name for path in images.glob(f"{name}-*.png"))
    if there != sorted(names):
        return f"{images} holds {there} of {name}; expected {names}"
    for file, png in zip(names, pictures):
        if f"](images/{file})" not in page:
            return f"{file} is not shown in the documents"
        share = difference((images / file).read_bytes(), png)
        if share > LARGEST_SHARE:
            return f"{file} differs in {100 * share:.1f} % from what the notebook draws; script/pictures redraws it"
    return None


def main():
    notebooks, docs = (Path(argument) for argument in sys.argv[1:3])
    images, page = docs / "images", (docs / "python.md").read_text(encoding="utf-8")
    paths = sorted(notebooks.glob("*.ipynb"))
    if not paths:
        sys.exit(f"notebooks: {notebooks} has none")
    with tempfile.TemporaryDirectory(prefix="tarnwick-notebooks-") as folder:
        for name in ("IPYTHONDIR", "JUPYTER_RUNTIME_DIR", "JUPYTER_CONFIG_DIR", "JUPYTER_DATA_DIR"):
            os.environ[name] = folder
        os.environ["MPLBACKEND"] = "module://matplotlib_inline.backend_inline"
        for path in paths:
            notebook = nbformat.read(path, as_version=4)
            nbformat.validate(notebook)
            if any(cell.get("outputs") for cell in notebook.cells):
                sys.exit(f"notebooks: {path.name} holds outputs; expected none, which would grow old")
            try:
                NotebookClient(notebook, timeout=300, kernel_name="python3", resources={"metadata": {"path": folder}}).execute()
            except CellExecutionError as failure:
                sys.exit(f"notebooks: {path.name}: {failure}")
            outputs = [output for cell in notebook.cells for output in cell.get("outputs", [])]
            pictures = [base64.b64decode(output["data"]["image/png"]) for output in outputs
                        if "image/png" in output.get("data", {})]
            for output in outputs if "--print" in sys.argv else []:
                print(output.get("text") or output.get("data", {}).get("text/plain", ""))
            if not pictures:
                sys.exit(f"notebooks: {path.name} draws no picture")
            if "--pictures" in sys.argv:
                for k, png in enumerate(pictures, 1):
                    save(images / f"{path.stem}-{k}.png", png)
            if wrong := compare(images, path.stem, pictures, page):
                sys.exit(f"notebooks: {path.name}: {wrong}")
            print(f"notebooks: {path.name} ran, {len(pictures)} pictures", flush=True)


main()
