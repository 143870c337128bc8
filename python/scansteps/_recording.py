"""Recordings: files of records, as the step `filesaver` writes and `read` plays them."""

from __future__ import annotations

import os
from typing import Any, Iterable, Iterator, List, Mapping, Optional, Union, overload

from . import _native
from ._errors import FileError
from ._native import Record

_INIT, _PROCESS, _FLUSH = 1001, 1002, 1003


class Recording:
    """The records of a file, one event each: initialise (1001), frames (1002), end (1003).

    `len`, indexes and slices count all records; `frames()` iterates over those with a frame. A record is read from the file
    when it is asked for. Damage is a FileError that names its position, raised after the whole records before it.
    """

    def __init__(self, path: Union[str, "os.PathLike[str]"]) -> None:
        self.path = os.fspath(path)
        self._file = _native.RecordingFile(self.path)

    def __len__(self) -> int:
        return self._file.count()

    @property
    def damage(self) -> Optional[int]:
        """The byte at which the recording has no whole record any more; None where its structure is undamaged."""
        return self._file.damage()

    def _damaged(self, position: int) -> FileError:
        return FileError(f"{self.path}: damaged at byte {position}: not a whole record")

    @overload
    def __getitem__(self, index: int) -> Record: ...

    @overload
    def __getitem__(self, index: slice) -> List[Record]: ...

    def __getitem__(self, index: Union[int, slice]) -> Union[Record, List[Record]]:
        count = len(self)
        if isinstance(index, slice):
            return [self._file.at(number) for number in range(*index.indices(count))]
        if index < 0:
            index += count
        if not 0 <= index < count:
            if index >= count and self.damage is not None:
                raise self._damaged(self.damage)
            raise IndexError(f"the recording has {count} records")
        return self._file.at(index)

    def __iter__(self) -> Iterator[Record]:
        offset = 0
        while True:
            answer = self._file.read_from(offset)
            if answer is None:
                return
            record, offset = answer
            del answer
            yield record
            del record

    def frames(self) -> Iterator[Record]:
        """The records with a frame."""
        for record in self:
            if record.frame is not None:
                yield record
            del record

    def close(self) -> None:
        self._file.close()

    def __enter__(self) -> Recording:
        return self

    def __exit__(self, *_: Any) -> None:
        self.close()

    def __repr__(self) -> str:
        return f"<scansteps.Recording {self.path!r}>"


def read(path: Union[str, "os.PathLike[str]"]) -> Recording:
    """Opens a recording."""
    return Recording(path)


def _type_of(record: Record) -> Optional[int]:
    return record["eventType"] if "eventType" in record else None


def _initial_of(record: Record) -> Record:
    """An initialise record that describes the frame of `record`."""
    initial = Record({"eventType": _INIT})
    frame = record.frame
    if frame is not None:
        names = {("uint8", 3): "CPU::u_1x8", ("uint16", 1): "CPU::u_1x16", ("float32", 1): "CPU::f_1x32",
                 ("float16", 1): "CPU::f_1x16", ("float32", 4): "CPU::f_4x32", ("float16", 4): "CPU::f_4x16"}
        channels = frame.shape[2] if frame.ndim == 3 else 1
        initial["dataX"], initial["dataY"] = int(frame.shape[1]), int(frame.shape[0])
        name = names.get((frame.dtype.name, channels))
        if name is not None:
            initial["dataFormat"] = name
    return initial


def write(path: Union[str, "os.PathLike[str]"], records: Iterable[Union[Record, Mapping[str, Any]]]) -> int:
    """Writes a recording that `read` plays, and returns the number of records.

    Records that come without an initialise record before them or an end record after them get one: of the run that they
    come from, else from the first frame. The file appears under its name when it is complete.
    """
    writer = _native.RecordingWriter(os.fspath(path))
    count = 0

    def put(record: Record) -> None:
        nonlocal count
        writer.write(record)
        count += 1

    last: Optional[int] = _FLUSH
    try:
        for item in records:
            record = item if isinstance(item, Record) else Record(dict(item))
            if "eventType" not in record:
                record["eventType"] = _PROCESS
            if count == 0 and _type_of(record) != _INIT:
                initial = getattr(records, "initial", None)
                put(initial if initial is not None else _initial_of(record))
            put(record)
            last = _type_of(record)
            del item, record
        if last != _FLUSH:
            put(Record({"eventType": _FLUSH}))
        writer.commit()
    except BaseException:
        writer.abandon()
        raise
    return count
