#!/usr/bin/env python3
"""Makes docs/images/features_*.jpg anew: runs short pipelines and draws what their records hold.

Debian packages: python3-pil, python3-numpy. BIN names the folder of a built program (default build/dev/bin).
"""
import json
import os
import subprocess
import tempfile
from pathlib import Path

import numpy as np
from PIL import Image, ImageDraw

ROOT = Path(__file__).resolve().parent.parent
BIN = Path(os.environ.get("BIN", ROOT / "build" / "dev" / "bin")).resolve()
PHOTOS = ROOT / "examples" / "images"
TILE = 400


def run(pipeline, *options):
    """Records of the frames that arrive behind the pipeline's steps."""
    with tempfile.TemporaryDirectory() as folder:
        line = f"{pipeline} ! filesaver name={folder}/run.rec ! clast"
        subprocess.run([BIN / "scansteps", "run", "--quiet", line, *options], check=True, stdout=subprocess.DEVNULL)
        text = subprocess.run([BIN / "scansteps", "inspect", "--json", "--data", f"{folder}/run.rec"], check=True,
                              capture_output=True, text=True).stdout
    records = [json.loads(line)["record"] for line in text.splitlines()]
    return [r for r in records if r["eventType"] == 1002]



def photo(name):
    return f"cjread load.name={PHOTOS}/{name}"


def one(name, steps, *options):
    return run(f"{photo(name)} load.one=1 ! {steps}", *options)[0]


def plane(array):
    """The array of a record as numpy, rows x columns."""
    array = array["Array"]
    return np.array(array["data"]).reshape(array["dims"][1], array["dims"][0])


def frame(record, window=256):
    grey = (plane(record["data"]).astype(float) - 32768) * 255 / (window - 1)
    return Image.fromarray(np.clip(grey, 0, 255).astype(np.uint8)).convert("RGB")


def dimmed(name, factor=0.45):
    return Image.open(PHOTOS / name).convert("L").point(lambda v: int(v * factor)).convert("RGB")


def hue(i):
    return tuple(int(c) for c in Image.new("HSV", (1, 1), (i * 97 % 256, 210, 255)).convert("RGB").getpixel((0, 0)))


def sheet(name, *tiles):
    tiles = [t.resize((TILE, round(t.height * TILE / t.width)), Image.LANCZOS) for t in tiles]
    out = Image.new("RGB", (TILE * len(tiles) + 4 * (len(tiles) - 1), max(t.height for t in tiles)), "white")
    for i, tile in enumerate(tiles):
        out.paste(tile, (i * (TILE + 4), 0))
    out.save(ROOT / "docs" / "images" / f"features_{name}.jpg", quality=72)


def planes():
    name = "photo_chelsea.jpg"
    sheet("planes", frame(one(name, "c3f color.channel=0")), frame(one(name, "c3f ! cedge edge.lp0=1")),
          frame(one(name, "c3f ! cdeva deva.gain=3.0")))


def with_lines(record, picture):
    draw = ImageDraw.Draw(picture)
    for i, line in enumerate(record["fvertsArray"]["StructArray"]):
        vertices = [tuple(v) for v in plane(line["verts"])]
        draw.line(vertices + vertices[:1] * line["closed"], fill=hue(i), width=2)
    return picture


def with_boxes(record, picture):
    draw = ImageDraw.Draw(picture)
    for i, (_x, _y, area, left, top, right, bottom, open_) in enumerate(plane(record["regions"])):
        if 60 < area < 60000 and not open_:
            draw.rectangle((left, top, right, bottom), outline=hue(i), width=2)
    return picture


def edges():
    name, settings = "photo_rocket.jpg", ("--set", "OCV.lp0=1", "--set", "OCV.trl=40", "--set", "OCV.trh=100")
    closed = one(name, "cyuv ! ccanny2b", *settings)
    sheet("edges", with_lines(one(name, "cyuv ! ccanny2a", *settings), dimmed(name)),
          with_boxes(closed, frame(closed)), with_lines(one(name, "cyuv ! ccanny2c", *settings), dimmed(name)))


def with_features(record, picture):
    draw = ImageDraw.Draw(picture)
    words = plane(record["vertAttr"]).astype(np.uint32)
    for x, y, score, angle, size in words[:, :5].copy().view(np.float32):
        r = 4 * size
        draw.ellipse((x - r, y - r, x + r, y + r), outline=hue(int(np.log2(size) * 6)))
        draw.line((x, y, x + r * np.cos(angle), y + r * np.sin(angle)), fill="white")
    return picture


def corners():
    name, settings = "img0000.jpg", ("--set", "cpu_base=0", "--set", "corner.threshold=60")
    sheet("corners", *(with_features(one(name, f"cyuv ! {steps}", *settings), dimmed(name, 0.6)) for steps in
                       ("ccorner5 corner.corner=0", "ccorner5 corner.corner=1",
                        "ccorner5 corner.corner=0 ! cneig neig.distance=80")))


def with_ellipses(record, picture):
    draw = ImageDraw.Draw(picture)
    turn = np.linspace(0, 2 * np.pi, 40)
    for i, (x, y, area, a, b, angle, _level, _variation) in enumerate(plane(record["regions"])):
        if area < 60:
            continue
        c, s = np.cos(np.radians(angle)), np.sin(np.radians(angle))
        u, v = a * np.cos(turn), b * np.sin(turn)
        draw.line(list(zip(x + c * u - s * v, y + s * u + c * v)), fill=hue(i), width=2)
    return picture


def coloured(record):
    labels = plane(record["data"]).astype(int) - 32768
    colours = np.array([(0, 0, 0)] + [hue(i) for i in range(labels.max())], np.uint8)
    return Image.fromarray(colours[labels])


def regions():
    name = "photo_coffee.jpg"
    dark, bright = (one(name, f"c3f ! csegment segment.labels=1 segment.bright={b}") for b in (0, 1))
    sheet("regions", coloured(dark), with_ellipses(dark, dimmed(name)), with_ellipses(bright, dimmed(name)))


def outline(record, picture):
    t = plane(record["transform"])
    width, height = picture.size
    corners = t @ np.array([[0, width, width, 0, 0], [0, 0, height, height, 0], [1, 1, 1, 1, 1]])
    ImageDraw.Draw(picture).line(list(zip(*(corners[:2] / corners[2]))), fill=(255, 200, 0), width=4)
    return picture


def motion():
    # far apart and backwards, so that the zoom shows and the frame before lies inside
    def last(kind):
        return run(f"{photo('img0011.jpg')} load.incr=-5 ! cyuv ! {kind}", "--frames", "2")[-1]
    sheet("motion", *(outline(r, frame(r)) for r in map(last, ("ccanny5old", "ccanny5", "ccanny7"))))


def views():
    def last(kind):
        line = f"{photo('img0011.jpg')} load.incr=-3 ! c3f ! {kind}"
        return frame(run(line, "--frames", "3")[-1])
    sheet("views", last("c2rege rege.draw=1"), last("c2rege5 rege5.draw=1"))


for make in (planes, edges, corners, regions, motion, views):
    make()
    print(make.__name__)
