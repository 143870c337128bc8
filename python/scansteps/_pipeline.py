"""Pipelines: one frame in and one record out, or a source that is run to its end."""

from __future__ import annotations

import json
import os
import warnings
from typing import Any, Dict, Iterator, List, Mapping, NamedTuple, Optional, Sequence, Set, Tuple, Union

from . import _display, _library, _native
from ._errors import Error, FileError, FormatError, PipelineWarning, SettingsError
from ._native import Record


class Step:
    """A step written in Python, for use among the steps of a pipeline.

    Override `process`, and `init` and `flush` where needed. The record that is returned goes on to the next step;
    None drops it. A step that changes the size or format of the frames sets "dataX", "dataY" or "dataFormat" in `init`.
    """

    name: Optional[str] = None

    def init(self, record: Record) -> Optional[Record]:
        """The initialise event, before the first frame; None forwards it unchanged."""
        return record

    def process(self, record: Record) -> Optional[Record]:
        """One frame."""
        return record

    def flush(self, record: Record) -> Optional[Record]:
        """The end of the run; None forwards it unchanged."""
        return record


class StepTime(NamedTuple):
    """A step of a pipeline and the seconds that it has spent since the initialise event (None: keeps no time)."""

    kind: str
    class_name: str
    name: str
    seconds: Optional[float]


PipelineLike = Union[str, "os.PathLike[str]", Mapping[str, Any], Sequence[Union[str, Mapping[str, Any], Step]]]


def _plain(value: Any) -> Any:
    """A numpy scalar or a path as the JSON of pipeline files has it."""
    if getattr(value, "ndim", None) == 0:
        return value.item()
    if isinstance(value, os.PathLike):
        return os.fspath(value)
    raise SettingsError(f"a setting cannot be a {type(value).__name__}")


def _parts(pipeline: PipelineLike) -> List[Any]:
    """The parts that the native pipeline takes: texts and Step objects."""
    if isinstance(pipeline, (str, os.PathLike)):
        return [os.fspath(pipeline)]
    if isinstance(pipeline, Mapping):
        if any(isinstance(step, Step) for step in pipeline.get("steps", ())):
            raise SettingsError("Python steps go into a list of steps, and settings into keyword arguments")
        return [json.dumps(pipeline, default=_plain)]
    if isinstance(pipeline, Step):
        return [pipeline]
    parts: List[Any] = []
    for part in pipeline:
        if isinstance(part, Step):
            parts.append(part)
        elif isinstance(part, Mapping):
            parts.append(json.dumps({"steps": [part]}, default=_plain))
        elif isinstance(part, str):
            parts.append(part)
        else:
            raise SettingsError(f"a step is a text, a dict or a scansteps.Step, not a {type(part).__name__}")
    return parts


def _assignments(settings: Mapping[str, Any], prefix: str = "") -> Tuple[List[str], Dict[str, Any]]:
    """PATH=VALUE texts, as `--set` takes them, and what has no such form (arrays, lists)."""
    texts: List[str] = []
    others: Dict[str, Any] = {}
    for key, value in settings.items():
        path = prefix + key
        if isinstance(value, Mapping):
            more, nested = _assignments(value, path + ".")
            texts += more
            if nested:
                others[key] = nested
        elif value is None:
            continue
        elif isinstance(value, bool):
            texts.append(f"{path}={int(value)}")
        elif isinstance(value, (int, float, str, os.PathLike)):
            texts.append(f"{path}={os.fspath(value) if isinstance(value, os.PathLike) else value}")
        elif getattr(value, "ndim", None) == 0:  # a numpy scalar
            texts.append(f"{path}={value.item()}")
        elif "." in path:
            raise SettingsError(f"{path}: {type(value).__name__} values are given in a dict of their family")
        else:
            others[key] = value
    return texts, others


class Pipeline:
    """A chain of steps.

    `pipeline` is a one-line description, the name of a pipeline file (.json), the contents of one as a dict, or a list
    of descriptions of steps and `Step` objects. Other keyword arguments are settings, as `--set` takes them:
    `trh=160`, `OCV={"trh": 160}`.

    A pipeline without a source is called with a frame, an array of the shape (rows, columns) or (rows, columns,
    channels), and returns the record that reaches its end, or None when a step dropped the frame. One with a source
    is iterated over. Use it in a `with` statement, so that files are completed at its end.

    size: (width, height) of the frames; without it, the first frame tells.
    format: "dataFormat" of the frames, such as "CPU::u_1x16"; without it, the first frame tells.
    frames: ends the run after that many frames; 0 is no limit.
    types: "error", "warn" or "off": what happens when types of neighbouring steps do not fit.
    force: the pipeline may write files that it reads.
    strict: warnings at the end of a run (a source that stopped early, files that were not written) are errors.
    library: path of the step library.
    plugins: paths of plug-ins, which are loaded beside those that are installed.
    """

    def __init__(self, pipeline: PipelineLike, *, size: Optional[Tuple[int, int]] = None,
                 format: Optional[str] = None, frames: Optional[int] = None, types: str = "error",
                 force: bool = False, strict: bool = False, library: Optional[str] = None, plugins: Sequence[str] = (),
                 **settings: Any) -> None:
        if types not in ("error", "warn", "off"):
            raise SettingsError('types is "error", "warn" or "off"')
        top: Dict[str, Any] = {}
        if size is not None:
            width, height = size
            top.update(dataX=int(width), dataY=int(height))
        if format is not None:
            top["dataFormat"] = format
        self._native = _native.Pipeline(_library.load(library, plugins), _parts(pipeline), top)
        self._strict = strict
        self._told: Set[str] = set()
        if frames is not None:
            if frames < 0:
                raise SettingsError("frames is 0 or more")
            self._native.limit = frames
        self._set(settings)
        self._types, self._force, self._checked = types, force, False
        # Without a size the first frame completes the settings, and the checks wait for it.
        if self._native.has_source or size is not None:
            self._check()

    def _set(self, settings: Mapping[str, Any]) -> None:
        texts, others = _assignments(settings)
        self._native.set(texts, others)

    def _warn(self, text: str) -> None:
        if text not in self._told:
            self._told.add(text)
            warnings.warn(text, PipelineWarning, stacklevel=4)

    def _check(self) -> None:
        """Checks the pipeline, once."""
        if self._checked:
            return
        for code, text, _ in self._native.check(self._types, self._force, self._strict):
            if code == 0:
                self._warn(text)
            elif code == 3:
                raise FormatError(text)
            else:
                raise (FileError if code == 5 else SettingsError)(text)
        self._checked = True

    def _pass_on_warnings(self) -> None:
        for text in self._native.take_warnings():
            self._warn(text)

    def set(self, **settings: Any) -> None:
        """Changes settings; the pipeline is initialised with them again before the next frame."""
        self._set(settings)
        if self._native.is_initialised:
            self._native.initialise()
            self._pass_on_warnings()

    def initialise(self) -> None:
        """Sends the initialise event. The first frame does so by itself."""
        self._check()
        self._native.initialise()
        self._pass_on_warnings()

    def __call__(self, frame: Any, entries: Optional[Mapping[str, Any]] = None) -> Optional[Record]:
        """Processes one frame, an array or a `Record`; `entries` are added to its record.

        None sends a record without a frame, to steps that need none.
        """
        if not self._native.is_initialised and not self._native.has_source:
            pixels = frame.frame if isinstance(frame, Record) else frame
            if pixels is not None:
                self._native.describe(pixels)
            self._check()
        record = self._native.call(frame, dict(entries) if entries is not None else None)
        self._pass_on_warnings()
        return record

    def __iter__(self) -> Iterator[Record]:
        """Runs a pipeline with a source to its end."""
        if not self._native.is_initialised:
            self.initialise()
        while True:
            record = self._native.next()
            if record is None:
                break
            yield record
            del record
        self.flush()

    def flush(self) -> None:
        """Ends the run: files are completed. The next frame begins another run."""
        try:
            self._native.flush()
        finally:
            self._pass_on_warnings()
        for step, text in self._native.troubles():
            if self._strict:
                raise FileError(text, step)
            self._warn(f"{step}: {text}")

    def close(self) -> None:
        """Flushes and frees the steps. May be called again; a pipeline that is dropped does so by itself."""
        try:
            self.flush()
        finally:
            self._native.close()
            self._pass_on_warnings()

    def __del__(self) -> None:
        if hasattr(self, "_native"):
            self.close()

    def __enter__(self) -> Pipeline:
        return self

    def __exit__(self, kind: Any, error: Any, trace: Any) -> None:
        if kind is None:
            self.close()
            return
        try:  # the first error counts
            self._native.close()
        except Error:
            pass

    @property
    def steps(self) -> List[StepTime]:
        """The steps with their times."""
        return [StepTime(*facts) for facts in self._native.steps()]

    @property
    def initial(self) -> Optional[Record]:
        """The initialise record as it reached the end of the chain: it describes the frames."""
        return self._native.initial

    @property
    def frames(self) -> int:
        """Frames that were processed since the initialise event."""
        return self._native.frames

    @property
    def copies(self) -> int:
        """Frames that were copied because Python still held them when the chain went on."""
        return self._native.copies

    def __repr__(self) -> str:
        return f"<scansteps.Pipeline {' ! '.join(step.kind for step in self.steps)}>"

    def _repr_html_(self) -> str:
        return _display.pipeline(self.steps, self.frames)


class Run:
    """A run of a pipeline: iterating over it yields the records that reach its end.

    The source is opened at once, so that errors in the pipeline are raised where it was made. A run that nobody iterates
    over is run to its end when it is dropped, so that `run(...)` as a statement does its work; `wait()` says so and
    raises its errors. A run that is dropped half-way is flushed.
    """

    def __init__(self, pipeline: Pipeline) -> None:
        self._pipeline = pipeline
        self._records: Optional[Iterator[Record]] = None
        self._done = False
        try:
            pipeline.initialise()
        except BaseException:
            pipeline._native.close()
            self._done = True
            raise

    def __iter__(self) -> Run:
        return self

    def __next__(self) -> Record:
        if self._done:
            raise StopIteration
        if self._records is None:
            self._records = iter(self._pipeline)
        try:
            return next(self._records)
        except StopIteration:
            self.close()
            raise
        except BaseException:
            self._done = True
            try:
                self._pipeline._native.close()
            except Error:
                pass  # the first error counts
            raise

    def wait(self) -> Run:
        """Runs to the end."""
        for _ in self:
            pass
        return self

    def close(self) -> None:
        """Ends the run now. May be called again."""
        if not self._done:
            self._done = True
            self._pipeline.close()

    def __enter__(self) -> Run:
        return self

    def __exit__(self, kind: Any, error: Any, trace: Any) -> None:
        self.close()

    def __del__(self) -> None:
        if getattr(self, "_done", True):
            return
        if self._records is None:
            self.wait()
        else:
            self.close()

    @property
    def pipeline(self) -> Pipeline:
        return self._pipeline

    @property
    def initial(self) -> Optional[Record]:
        """The initialise record as it reached the end of the chain."""
        return self._pipeline.initial

    @property
    def steps(self) -> List[StepTime]:
        return self._pipeline.steps

    @property
    def frames(self) -> int:
        return self._pipeline.frames

    def _repr_html_(self) -> str:
        return self._pipeline._repr_html_()


def run(pipeline: PipelineLike, **options: Any) -> Run:
    """Runs a pipeline that begins with a source; takes the arguments of `Pipeline`.

    >>> for record in run("cjread load.name=img0000.jpg ! cyuv ! ccanny", trh=160):
    ...     print(record.frame.shape)
    """
    return Run(Pipeline(pipeline, **options))


def check(pipeline: PipelineLike, **options: Any) -> List[str]:
    """The warnings about a pipeline; raises what `run` would raise before the first frame."""
    with warnings.catch_warnings(record=True) as caught:
        warnings.simplefilter("always")
        Pipeline(pipeline, **options)
    return [str(warning.message) for warning in caught]
