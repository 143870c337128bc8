"""The table of steps."""

from __future__ import annotations

import json
from dataclasses import dataclass, field
from typing import Any, Dict, List, Optional

from . import _native


@dataclass(frozen=True)
class StepInfo:
    """What the table says of a step, as in `scansteps steps --json`."""

    kind: str
    class_name: str
    type_in: str
    type_out: str
    source: bool
    summary: str
    frames: Dict[str, str]
    stateless: bool
    settings: List[Dict[str, Any]] = field(default_factory=list)

    def __repr__(self) -> str:
        return f"<scansteps.StepInfo {self.kind}: {self.summary}>"


def steps() -> Dict[str, StepInfo]:
    """All kinds of steps by name."""
    return {
        step["kind"]: StepInfo(step["kind"], step["class"], step["typeIn"], step["typeOut"], step["source"], step["summary"],
                               step["frames"], step["stateless"], step["settings"])
        for step in json.loads(_native.steps_json())
    }
