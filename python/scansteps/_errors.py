"""Exceptions and warnings of the package."""

from __future__ import annotations

from typing import Optional


class Error(Exception):
    """A step raised an error, or the base of the other exceptions.

    `step` is the step as messages name it ("step 2 (ccanny)"), `kind` its kind and `frame` the number of the frame,
    counted from 1; each is None where it does not apply. `message` is the text alone.
    """

    def __init__(self, message: str, step: Optional[str] = None, kind: Optional[str] = None,
                 frame: Optional[int] = None) -> None:
        super().__init__(message, step, kind, frame)
        self.message = message
        self.step = step
        self.kind = kind
        self.frame = frame

    def __str__(self) -> str:
        place = ", ".join(part for part in (self.step, f"frame {self.frame}" if self.frame else None) if part)
        return f"{place}: {self.message}" if place else self.message


class FormatError(Error):
    """Types or formats do not fit: of neighbouring steps, or of an array that is to be a frame."""


class SettingsError(Error):
    """A pipeline, a kind or a setting is wrong."""


class FileError(Error):
    """A file, a library or a connection failed."""


class PipelineWarning(UserWarning):
    """What `scansteps run` prints as a warning."""
