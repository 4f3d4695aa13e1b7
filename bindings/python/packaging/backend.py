"""Builds the wheel (PEP 517): CMake makes the module for this interpreter, and this packs what it installs.

TARNWICK_BUILD names a build tree that has the module already; without it one is made in ``build/wheel``.
"""
from __future__ import annotations

import os
import re
import shutil
import subprocess
import sys
import sysconfig
import tempfile
from collections.abc import Iterator
from pathlib import Path
from typing import Any

from wheel.wheelfile import WheelFile

TOP = Path(__file__).resolve().parents[3]


def get_requires_for_build_wheel(config_settings: Any = None) -> list[str]:
    return []


def build_wheel(wheel_directory: str, config_settings: Any = None, metadata_directory: str | None = None) -> str:
    project = _project()
    build = Path(os.environ["TARNWICK_BUILD"]) if "TARNWICK_BUILD" in os.environ else _built()
    name = f"tarnwick-{project['version']}-{_tag()}.whl"
    with tempfile.TemporaryDirectory(prefix="tarnwick-wheel-") as folder:
        stage = Path(folder)
        subprocess.run(["cmake", "--install", build, "--component", "python", "--prefix", stage, "--strip"], check=True,
                       stdout=subprocess.DEVNULL)
        if not list((stage / "tarnwick").glob("_core.*")):
            raise SystemExit(f"backend: {build} has no Python module; expected one built with TARNWICK_BUILD_PYTHON")
        _replace_links(stage / "tarnwick")
        _describe(stage / f"tarnwick-{project['version']}.dist-info", project)
        with WheelFile(Path(wheel_directory) / name, "w") as wheel:
            wheel.write_files(stage)
    return name


def build_sdist(sdist_directory: str, config_settings: Any = None) -> str:
    raise SystemExit("backend: there is no source distribution; build the wheel from a clone")


def _built() -> Path:
    build = TOP / "build" / "wheel"
    options = {"CMAKE_BUILD_TYPE": "Release", "Python_EXECUTABLE": sys.executable, "TARNWICK_BUILD_PYTHON": "ON",
               "TARNWICK_BUILD_TESTS": "OFF", "TARNWICK_BUILD_APPS": "OFF", "TARNWICK_BUILD_BENCH": "OFF"}
    if shutil.which("ccache"):
        options["CMAKE_CXX_COMPILER_LAUNCHER"] = "ccache"
    subprocess.run(["cmake", "-S", TOP, "-B", build, "-G", "Ninja", *(f"-D{key}={value}" for key, value in options.items())],
                   check=True)
    subprocess.run(["cmake", "--build", build], check=True)
    return build


def _project() -> dict[str, str]:
    """What pyproject.toml says once; the version stands in CMakeLists.txt."""
    text = (TOP / "pyproject.toml").read_text()
    project = {key: _found(rf'^{key} = "([^"]+)"', text) for key in ("description", "requires-python")}
    project["version"] = _found(r"^project\(TarnwickFilters VERSION (\S+)", (TOP / "CMakeLists.txt").read_text())
    return project


def _found(pattern: str, text: str) -> str:
    match = re.search(pattern, text, re.MULTILINE)
    if match is None:
        raise SystemExit(f"backend: nothing matches {pattern!r}")
    return match[1]


def _tag() -> str:
    abi = f"cp{sys.version_info.major}{sys.version_info.minor}"
    return f"{abi}-{abi}-{re.sub('[-.]', '_', sysconfig.get_platform())}"


def _replace_links(package: Path) -> None:
    """A wheel has no links: each library lies there once, by the name that it is loaded by."""
    for link in [path for path in package.iterdir() if path.is_symlink()]:
        target = link.resolve()
        link.unlink()
        target.rename(link)


def _describe(folder: Path, project: dict[str, str]) -> None:
    folder.mkdir()
    lines = ["Metadata-Version: 2.1", "Name: tarnwick", f"Version: {project['version']}", f"Summary: {project['description']}",
             f"Requires-Python: {project['requires-python']}", "Requires-Dist: numpy", "Provides-Extra: plot",
             "Requires-Dist: matplotlib; extra == 'plot'", "License-File: LICENSE", "License-File: NOTICE",
             "Description-Content-Type: text/markdown", "", (TOP / "docs/python.md").read_text()]
    (folder / "METADATA").write_text("\n".join(lines))
    (folder / "WHEEL").write_text(f"Wheel-Version: 1.0\nGenerator: tarnwick\nRoot-Is-Purelib: false\nTag: {_tag()}\n")
    for name in ("LICENSE", "NOTICE"):
        shutil.copy(TOP / name, folder)
