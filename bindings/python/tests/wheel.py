"""Builds a wheel of this build tree, installs it into an empty virtual environment and uses it there.

The environment gets NumPy by a link, so that the check asks no registry.
"""
import os
import subprocess
import sys
import tempfile
import venv
from pathlib import Path

import numpy

TOP = Path(__file__).resolve().parents[3]
USE = """
import pathlib, numpy, tarnwick
assert pathlib.Path(tarnwick.__file__).is_relative_to(r"{environment}"), tarnwick.__file__
loaded = [line.split()[-1] for line in open("/proc/self/maps") if "libtarnwick" in line]
assert loaded and all(name.startswith(r"{environment}") for name in loaded), loaded
chain = tarnwick.Chain({{"device": {{"baudRateGBd": 10.0, "samplesPerUi": 8, "record": "periodic", "patternLengthUi": 16}},
                        "filters": [{{"type": "bessel-thomson"}}]}})
step = numpy.repeat([-0.2, 0.2], 64)
assert numpy.array_equal(chain.apply(step).samples, tarnwick.BesselThomson(
    {{"baudRateGBd": 10.0, "samplesPerUi": 8, "patternLengthUi": 16}})(step))
print("wheel: tarnwick", tarnwick.__version__, "works in an empty environment")
"""


def main(build):
    environment = {key: value for key, value in os.environ.items() if not key.startswith("PYTHON")}
    environment["PYTHONDONTWRITEBYTECODE"] = "1"
    with tempfile.TemporaryDirectory(prefix="tarnwick-wheel-") as folder:
        top = Path(folder).resolve()
        subprocess.run([sys.executable, "-m", "build", "--wheel", "--no-isolation", "--outdir", top, TOP], check=True,
                       env={**environment, "TARNWICK_BUILD": build})
        wheel, = top.glob("*.whl")
        venv.create(top / "env", with_pip=True)
        python = top / "env" / "bin" / "python"
        subprocess.run([python, "-m", "pip", "install", "--quiet", "--no-index", "--no-deps", wheel], check=True,
                       env=environment)
        site, = (top / "env").glob("lib/python*/site-packages")
        (site / "numpy").symlink_to(Path(numpy.__file__).parent)
        subprocess.run([python, "-c", USE.format(environment=top / "env")], check=True, cwd=top, env=environment)


main(sys.argv[1])
