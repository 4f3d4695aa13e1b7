"""Fields of the configuration and of the filters: the library's own tables of them, and values on their way to it."""
from __future__ import annotations

import inspect
import json
import math
import os
import reprlib
import textwrap
from collections.abc import Mapping
from typing import Any, NamedTuple

import numpy as np

from . import _core


class Field(NamedTuple):
    """One field, as ``tarnwick chain-keys`` lists it."""

    name: str
    kind: str
    unit: str
    usual: str
    meaning: str
    choices: tuple[str, ...]

    @property
    def default(self) -> Any:
        """Its value when it is not given; None where that is found, taken from another field, or needed."""
        if self.usual in self.choices:
            return self.usual
        try:
            return json.loads(self.usual)
        except ValueError:
            return None

    def description(self) -> str:
        """Its entry in a list of parameters."""
        unit = f" [{self.unit}]" if self.unit else ""
        usual = f", default {self.usual}" if self.usual else ""
        choices = f": {', '.join(self.choices)}" if self.choices else ""
        return f"{self.name} : {self.kind}{usual}\n" + textwrap.indent(
            "\n".join(textwrap.wrap(f"{self.meaning}{choices}{unit}", 100)), "    ")


class FieldGroup(NamedTuple):
    """The fields of the configuration, or of one type of filter."""

    meaning: str
    fields: dict[str, Field]

    def signature(self, *leading: inspect.Parameter) -> inspect.Signature:
        """What a constructor takes that has these as keywords."""
        keywords = [inspect.Parameter(field.name, inspect.Parameter.KEYWORD_ONLY, default=field.default)
                    for field in self.fields.values()]
        return inspect.Signature([*leading, *keywords])

    def described(self) -> str:
        """Their entries in a list of parameters."""
        return "\n".join(field.description() for field in self.fields.values())


def _read_groups() -> dict[str, FieldGroup]:
    groups = {}
    for group in json.loads(_core.chain_keys())["groups"]:
        fields = {key["name"]: Field(key["name"], key["value"], key["unit"], key["default"], key["meaning"],
                                     tuple(key["choices"])) for key in group["keys"]}
        groups[group["name"]] = FieldGroup(group["meaning"], fields)
    return groups


GROUPS = _read_groups()
DEVICE = GROUPS["device"]


def _usual_of(usual: str, kind: str) -> str:
    """Of "false; deembedding: true" what counts for a type of filter."""
    first, *others = usual.split("; ")
    for each in others:
        kinds, _, value = each.rpartition(": ")
        if kind in kinds.split(", "):
            return value
    return first


def of_filter(kind: str) -> FieldGroup:
    """The fields of a type of filter, those of every filter behind them."""
    own = GROUPS[kind]
    common = {name: field._replace(usual=_usual_of(field.usual, kind))
              for name, field in GROUPS["every filter"].fields.items() if name not in ("type", "enabled")}
    return FieldGroup(own.meaning, {**own.fields, **common})


def plain(owner: str, name: str, value: Any) -> Any:
    """A value as JSON has it.

    Raises
    ------
    ValueError
        It is not finite, or nothing that a field can hold.
    """
    if isinstance(value, np.generic):
        value = value.item()
    if isinstance(value, os.PathLike):
        return os.fspath(value)
    if isinstance(value, np.ndarray):
        value = value.tolist()
    if isinstance(value, float) and not math.isfinite(value):
        raise ValueError(f"{owner}: {name} is {value}; expected a finite number")
    if isinstance(value, Mapping):
        return {str(key): plain(owner, f"{name}.{key}", each) for key, each in value.items()}
    if isinstance(value, (list, tuple)):
        return [plain(owner, name, each) for each in value]
    if value is None or isinstance(value, (str, bool, int, float)):
        return value
    raise ValueError(f"{owner}: {name} is of type {type(value).__name__}; expected a number, a text or a list of numbers")


_SHORT = reprlib.Repr()
_SHORT.maxstring = 40
_SHORT.maxother = 60


def shown(name: str, fields: Mapping[str, Any], *leading: str) -> str:
    """``Name(field=value, ...)``, long values shortened."""
    parts = [*leading, *(f"{key}={_SHORT.repr(value)}" for key, value in fields.items())]
    return f"{name}({', '.join(parts)})"
