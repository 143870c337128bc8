"""Writes small recordings: docs/recording-format.md in a few lines."""
import struct

INT, FLOAT, USHORT, UCHAR, UINT = 5, 8, 4, 2, 6


class Array:
    def __init__(self, kind, dims, elements):
        letter = {INT: "i", FLOAT: "f", USHORT: "H", UCHAR: "B", UINT: "I"}[kind]
        self.bytes = struct.pack("<5I", 12, *dims, kind) + struct.pack(f"<{len(elements)}{letter}", *elements)


def text(value):
    coded = bytes((c - 10 - i) % 256 for i, c in enumerate([*value.encode(), 0]))
    return struct.pack("<I", len(coded) + 99) + coded


def record(entries):
    directory, values = b"", b""
    for key, value in sorted(entries.items()):
        kind, data = {int: (INT, lambda: struct.pack("<i", value)), str: (10, lambda: text(value)), dict: (11, lambda: record(value)),
                      list: (13, lambda: struct.pack("<2I", 13, len(value)) + b"".join(record(each) for each in value)),
                      Array: (12, lambda: value.bytes)}[type(value)]
        directory += text(key) + struct.pack("<I", kind)
        values += data()
    return struct.pack("<Q2I", 16 + len(directory) + len(values), 11, len(entries)) + directory + values


def recording(width, height, frames, **description):
    """The bytes of a recording whose frames are those records, completed."""
    init = {"eventType": 1001, "dataX": width, "dataY": height, "dataFormat": "CPU::u_1x16", **description}
    return b"".join([record(init), *(record({"eventType": 1002, **frame}) for frame in frames), record({"eventType": 1003})])
