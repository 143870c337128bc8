#!/usr/bin/env python3
"""Makes the example recordings of models: a torus knot with a colour on each triangle, the same with three
pictures besides, and a point cloud.

usage: make_models.py [OUT]

Needs nothing but Python, and shows how a program that is not this one writes recordings.
"""
import math
import os
import struct
import sys
from array import array

OUT = sys.argv[1] if len(sys.argv) > 1 else os.path.dirname(os.path.abspath(__file__))


# Values as (type code, bytes); a record is a dictionary of them.
def int_value(v):
    return 5, struct.pack("<i", v)


def array_value(kind, code, values, d0, d1, d2=1):
    data = array(code, values)
    if sys.byteorder == "big":
        data.byteswap()
    assert len(data) == d0 * d1 * d2
    return 12, struct.pack("<5I", 12, d0, d1, d2, kind) + data.tobytes()


def floats(values, width):
    return array_value(8, "f", values, width, len(values) // width)


def ints(values, width):
    return array_value(5, "i", values, width, len(values) // width)


def text_bytes(text):
    raw = text.encode() + b"\0"
    return struct.pack("<I", len(raw) + 99) + bytes((c - 10 - i) % 256 for i, c in enumerate(raw))


def record_bytes(entries):
    keys = sorted(entries)
    body = b"".join(text_bytes(k) + struct.pack("<I", entries[k][0]) for k in keys)
    body += b"".join(entries[k][1] for k in keys)
    return struct.pack("<QII", 16 + len(body), 11, len(keys)) + body


def struct_value(entries):
    return 11, record_bytes(entries)


def struct_array_value(elements):
    return 13, struct.pack("<II", 13, len(elements)) + b"".join(record_bytes(e) for e in elements)


def write_recording(name, model):
    """An initialise event, one frame with the model, a flush event."""
    with open(os.path.join(OUT, name), "wb") as file:
        file.write(record_bytes({"eventType": int_value(1001)}))
        file.write(record_bytes({"eventType": int_value(1002), **model}))
        file.write(record_bytes({"eventType": int_value(1003)}))


def hue(h):
    """Red, green, blue from 0 to 255 of a full colour."""
    return [255 * min(max(abs((h * 6 + s) % 6 - 3) - 1, 0), 1) for s in (0, 4, 2)]


# The knot's middle line, and the tube around it.
def line(t):
    r = 2 + math.cos(3 * t)
    return r * math.cos(2 * t), r * math.sin(2 * t), 1.2 * math.sin(3 * t)


def cross(a, b):
    return a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]


def unit(v):
    length = math.sqrt(sum(x * x for x in v))
    return [x / length for x in v]


def tube(t, angle, radius=0.42):
    p, q = line(t), line(t + 1e-4)
    along = unit([b - a for a, b in zip(p, q)])
    side = unit(cross(along, p))
    up = cross(side, along)
    return [c + radius * (math.cos(angle) * s + math.sin(angle) * u) for c, s, u in zip(p, side, up)]


WIDTH, HEIGHT = 160, 64  # of each picture
VIEWS, RINGS, AROUND = 3, 36, 14  # parts of the knot, quads along and around each


def picture(view):
    """A third of the knot's skin: stripes and a fine grid, so that a wrong texture is seen at once."""
    pixels = bytearray()
    for y in range(HEIGHT):
        for x in range(WIDTH):
            r, g, b = hue(((x / WIDTH + view) / VIEWS + y / HEIGHT) % 1)
            light = 1 if (x // 8 + y // 8) % 2 else 0.72
            pixels += bytes(int(light * (60 + c * 195 / 255)) for c in (r, g, b))
    return {"data": array_value(2, "B", pixels, 3 * WIDTH, HEIGHT)}


def knot(textured):
    vertices, indices, colours, pixels, views = [], [], [], [], []
    for view in range(VIEWS):
        first = len(vertices) // 3
        for i in range(RINGS + 1):
            t = 2 * math.pi * (i / RINGS + view) / VIEWS
            for j in range(AROUND + 1):
                vertices += tube(t, 2 * math.pi * j / AROUND)
                pixels += [i / RINGS * (WIDTH - 1), j / AROUND * (HEIGHT - 1)]
                views.append(view)
        for i in range(RINGS):
            for j in range(AROUND):
                a = first + i * (AROUND + 1) + j
                b, c, d = a + 1, a + AROUND + 1, a + AROUND + 2
                indices += [a, c, b, b, c, d]
                colours += 2 * hue(((i / RINGS + view) / VIEWS + j / AROUND) % 1)
    tria = {"Vertices": floats(vertices, 3), "Indices": ints(indices, 3), "Tricolors": floats(colours, 3)}
    if not textured:
        return {"tria": struct_value(tria)}
    tria.update({"Pixels": floats(pixels, 2), "Views": ints(views, 1)})
    return {"tria": struct_value(tria), "images": struct_array_value([picture(view) for view in range(VIEWS)])}


def spiral(count=2000):
    """Points on a sphere, coloured by direction."""
    points, colours = [], []
    for i in range(count):
        z = 1 - (2 * i + 1) / count
        angle = i * math.pi * (3 - math.sqrt(5))
        p = [math.sqrt(1 - z * z) * math.cos(angle), math.sqrt(1 - z * z) * math.sin(angle), z]
        points += p
        colours += [127.5 * (1 + c) for c in p]
    return {"pns": struct_value({"Points": floats(points, 3), "Colors": floats(colours, 3)})}


write_recording("torus_knot.rec", knot(textured=False))
write_recording("textured_knot.rec", knot(textured=True))
write_recording("sphere_points.rec", spiral())
