"""Runs the examples of the package's docstrings, and those of the documents named on the command line."""
import doctest
import importlib
import pathlib
import pkgutil
import re
import sys

import matplotlib

import tarnwick

matplotlib.use("Agg")


def modules():
    yield tarnwick
    for module in pkgutil.iter_modules(tarnwick.__path__):
        yield importlib.import_module(f"tarnwick.{module.name}")


def without_example():
    """Public names whose docstring shows no use."""
    for module in (tarnwick, importlib.import_module("tarnwick.plot")):
        for name in module.__all__:
            each = getattr(module, name)
            if callable(each) and name not in EXCUSED and ">>>" not in (each.__doc__ or ""):
                yield f"{module.__name__}.{name}: no example"


# What others return or raise, and the base of the filters.
EXCUSED = {"Capture", "Eye", "Filter", "PatternLockFailed", "Response", "Result", "pulses", "clock_phase"}

failed = tried = 0
for module in modules():
    outcome = doctest.testmod(module)
    failed, tried = failed + outcome.failed, tried + outcome.attempted
for document in map(pathlib.Path, sys.argv[1:]):
    # A fence would be taken for output.
    text = re.sub(r"^```.*$", "", document.read_text(), flags=re.MULTILINE)
    test = doctest.DocTestParser().get_doctest(text, {}, document.name, str(document), 0)
    outcome = doctest.DocTestRunner().run(test)
    failed, tried = failed + outcome.failed, tried + outcome.attempted
    if outcome.attempted == 0:
        sys.exit(f"doctests: {document} has no example")
missing = list(without_example())
print(f"doctests: {tried} examples, {failed} failed", *missing, sep="\n")
sys.exit(bool(failed or missing or tried < 40))
