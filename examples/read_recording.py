"""Reads a recording without the library: one line of JSON a record. usage: read_recording.py RECORDING"""

import json
import struct
import sys

NAMES = "Empty Char Uchar Short Ushort Int Uint Half Float Double String Struct Array StructArray".split()
SCALARS = dict(zip(range(1, 10), "bBhHiIefd"))  # struct's letters for the kinds 1 to 9


class Reader:
    def __init__(self, stream):
        self.stream = stream

    def take(self, count):
        data = self.stream.read(count)
        if len(data) != count:
            raise EOFError("the recording ends within a record")
        return data

    def numbers(self, letters):
        return struct.unpack("<" + letters, self.take(struct.calcsize("<" + letters)))

    def text(self):
        (length,) = self.numbers("I")
        coded = self.take(length - 99)  # with the terminating zero
        return bytes((c + 10 + i) % 256 for i, c in enumerate(coded))[:-1].decode("utf-8", "replace")

    def record(self):
        _size, kind, count = self.numbers("QII")
        if kind != 11:
            raise ValueError("not a record")
        directory = [(self.text(), *self.numbers("I")) for _ in range(count)]
        return {name: self.value(kind) for name, kind in directory}

    def value(self, kind):
        if kind == 0:
            return None
        if kind in SCALARS:
            return self.numbers(SCALARS[kind])[0]
        if kind == 10:
            return self.text()
        if kind == 11:
            return self.record()
        if kind == 12:
            _kind, *dims, element = self.numbers("5I")
            size = struct.calcsize("<" + SCALARS.get(element, ""))
            pixels = self.take(dims[0] * dims[1] * dims[2] * size)  # rows top to bottom
            return {"Array": {"type": NAMES[element], "dims": dims, "bytes": len(pixels)}}
        _kind, count = self.numbers("2I")
        return {"StructArray": [self.record() for _ in range(count)]}


with open(sys.argv[1], "rb") as recording:
    while recording.peek(1):
        offset = recording.tell()
        values = Reader(recording).record()
        print(json.dumps({"offset": offset, "size": recording.tell() - offset, "record": values}))
