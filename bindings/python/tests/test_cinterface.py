"""The C interface of the workbench as ctypes calls it: the numbers of the Python module and of the program."""
import ctypes
import json
import os
import re
from pathlib import Path

import numpy as np
import pytest

import tarnwick
from conftest import DEVICE

FILTERS = [{"type": "bessel-thomson", "cutoffPercent": 75}, {"type": "ctle", "ctleType": "peaking", "gain": 3.0}]
DOUBLES = np.ctypeslib.ndpointer(np.float64, flags="C_CONTIGUOUS")


@pytest.fixture(scope="module")
def library():
    loaded = ctypes.CDLL(os.environ["TARNWICK_WORKBENCH"])
    loaded.tarnwick_version.restype = loaded.tarnwick_last_error.restype = ctypes.c_char_p
    loaded.tarnwick_chain_create.argtypes = [ctypes.c_char_p, ctypes.c_char_p, ctypes.c_size_t, ctypes.POINTER(ctypes.c_void_p)]
    loaded.tarnwick_chain_apply.argtypes = [ctypes.c_void_p, DOUBLES, DOUBLES, ctypes.c_size_t]
    loaded.tarnwick_chain_report.argtypes = [ctypes.c_void_p, ctypes.c_char_p, ctypes.c_size_t, ctypes.POINTER(ctypes.c_size_t)]
    loaded.tarnwick_chain_destroy.argtypes = [ctypes.c_void_p]
    loaded.tarnwick_chain_destroy.restype = None
    return loaded


def created(library, content, folder, count):
    chain = ctypes.c_void_p()
    code = library.tarnwick_chain_create(json.dumps(content).encode(), folder, count, ctypes.byref(chain))
    return code, chain


def test_the_numbers_of_the_program(library, wave, program, tmp_path):
    content = {"device": {**DEVICE, "record": "periodic"}, "filters": FILTERS}
    (tmp_path / "chain.json").write_text(json.dumps(content))
    np.save(tmp_path / "in.npy", wave)
    printed = json.loads(program("apply", tmp_path / "chain.json", tmp_path / "in.npy", "-o", tmp_path / "out.npy", "--json"))
    code, chain = created(library, content, None, wave.size)
    result = np.zeros_like(wave)
    assert code == 0 and library.tarnwick_chain_apply(chain, wave, result, wave.size) == 0
    assert np.array_equal(result, np.load(tmp_path / "out.npy"))
    needed = ctypes.c_size_t()
    assert library.tarnwick_chain_report(chain, None, 0, ctypes.byref(needed)) == 0
    text = ctypes.create_string_buffer(needed.value)
    assert library.tarnwick_chain_report(chain, text, needed, None) == 0
    stages = json.loads(text.value)["stages"]
    for stage, other in zip(stages, printed["stages"], strict=True):
        assert {**stage, "seconds": 0} == {**other, "seconds": 0}
    library.tarnwick_chain_destroy(chain)


def test_files_are_looked_for_in_the_folder(library, wave, tmp_path):
    folder = tmp_path / "Maße"  # beyond ASCII
    folder.mkdir()
    content = {"device": DEVICE, "filters": [{"type": "sirc", "channelResponse": "response.csv", "referenceCutoffPercent": 75}]}
    code, chain = created(library, content, os.fsencode(folder), wave.size)
    assert code == 3 and "Maße" in library.tarnwick_last_error().decode() and chain.value is None
    pulse = np.exp(-0.5 * ((np.arange(5000) - 500.0) / 4.0) ** 2)
    np.savetxt(folder / "response.csv", pulse)
    code, chain = created(library, content, os.fsencode(folder), wave.size)
    result = np.zeros_like(wave)
    assert code == 0 and library.tarnwick_chain_apply(chain, wave, result, wave.size) == 0
    library.tarnwick_chain_destroy(chain)
    filtered = tarnwick.SircFilter(DEVICE, channelResponse=pulse, referenceCutoffPercent=75)(wave)
    assert np.array_equal(result, filtered)


def test_versions_agree(library):
    assert library.tarnwick_version().decode() == tarnwick.__version__


def test_what_the_document_shows(monkeypatch):
    document = Path(__file__).parents[3] / "docs" / "c-interface.md"
    shown = re.search(r"^```python\n(.*?)^```$", document.read_text(encoding="utf-8"), re.MULTILINE | re.DOTALL)[1]
    loaded = []
    load = ctypes.CDLL
    monkeypatch.setattr(ctypes, "CDLL", lambda name: loaded.append(name) or load(os.environ["TARNWICK_WORKBENCH"]))
    names = {}
    exec(compile(shown, str(document), "exec"), names)
    assert names["code"] == 0 and list(names["filtered"][1:4]) == [1.0, 2.0, 3.0]
    # As Linux' linker notes it into programs.
    assert loaded == ["libtarnwick_workbench.so.1"]
