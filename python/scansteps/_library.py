"""Finds and loads the step library."""

from __future__ import annotations

import os
from pathlib import Path
from typing import Dict, Optional, Sequence, Tuple

from . import _native
from ._errors import FileError

_NAME = "libscansteps.so"
_loaded: Dict[Tuple[str, Tuple[str, ...]], _native.Library] = {}


def _candidates() -> list[Path]:
    package = Path(__file__).resolve().parent
    return [package / "lib" / _NAME, package.parent.parent / "bin" / _NAME]


def load(path: Optional[str] = None, plugins: Sequence[str] = ()) -> _native.Library:
    """The step library at `path`, else of the variable SCANSTEPS_LIBRARY, of the package or of the system; with plug-ins."""
    here = next((str(place) for place in _candidates() if place.exists()), "")
    found = path or os.environ.get("SCANSTEPS_LIBRARY") or here
    key = (found, tuple(os.fspath(plugin) for plugin in plugins))
    if key not in _loaded:
        _loaded[key] = _native.Library(found, list(key[1]))
    return _loaded[key]


def check() -> None:
    """Raises ImportError that says what is missing and where it was looked for."""
    try:
        load()
    except FileError as error:
        places = ", ".join(str(place) for place in _candidates())
        raise ImportError(f"scansteps: the step library {_NAME} is missing: {error} "
                          f"(the package itself looked for {places})") from error
