"""Pipelines of scansteps from Python: frames and results as numpy arrays, without files.

    import scansteps as ss

    for record in ss.run("cjread load.name=img0000.jpg ! cyuv ! ccanny2a trl=60 trh=160"):
        record.frame                      # numpy (480, 640) uint16, no copy
        record["fvertsArray"][0]["verts"] # numpy (2, N) float32
"""

from . import _library
from ._errors import Error, FileError, FormatError, PipelineWarning, SettingsError

_library.check()

from ._native import Record  # noqa: E402
from ._pipeline import Pipeline, Run, Step, StepTime, check, run  # noqa: E402
from ._recording import Recording, read, write  # noqa: E402
from ._steps import StepInfo, steps  # noqa: E402
from . import _display  # noqa: E402

__version__ = "0.1.0"

__all__ = [
    "Error", "FileError", "FormatError", "Pipeline", "PipelineWarning", "Record", "Recording", "Run", "SettingsError",
    "Step", "StepInfo", "StepTime", "check", "read", "run", "steps", "write",
]

Record.__module__ = "scansteps"
setattr(Record, "_repr_html_", _display.record)
