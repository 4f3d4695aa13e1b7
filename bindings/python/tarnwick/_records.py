"""Reports as the program prints them with ``--json``, for notebooks."""
from __future__ import annotations

import json
from typing import Any


class Record(dict[str, Any]):
    """A JSON object whose keys are attributes too.

    Examples
    --------
    >>> from tarnwick import Record
    >>> eye = Record(height=0.021, widthUi=0.4)
    >>> eye.height == eye["height"]
    True
    """

    def __getattr__(self, name: str) -> Any:
        try:
            return self[name]
        except KeyError:
            raise AttributeError(f"the report has no {name!r}; it has {', '.join(self)}") from None

    def __dir__(self) -> list[str]:
        return [*super().__dir__(), *self]

    @staticmethod
    def from_json(text: str) -> Any:
        """The value of a JSON text, its objects as records."""
        return json.loads(text, object_hook=Record)
