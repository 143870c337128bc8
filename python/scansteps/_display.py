"""How notebooks show records and pipelines."""

from __future__ import annotations

import base64
import html
import struct
import zlib
from typing import Any, Iterable, Optional

_MAX_SIDE = 640  # pixels of the picture of a frame


def png(frame: Any) -> Optional[bytes]:
    """A frame as a PNG of 8 bits: RGB as it is, samples from their smallest value (black) to their largest."""
    import numpy as np

    if frame is None or frame.size == 0 or frame.ndim > 3:
        return None
    step = max(1, -(-max(frame.shape[:2]) // _MAX_SIDE))
    pixels = frame[::step, ::step]
    if pixels.ndim == 3 and pixels.shape[2] == 4:
        pixels = pixels[..., :3]
    if pixels.ndim == 3 and pixels.shape[2] != 3:
        return None
    if pixels.dtype != np.uint8:
        values = np.nan_to_num(pixels.astype(np.float64))
        low, high = values.min(), values.max()
        pixels = np.round((values - low) * (255 / (high - low if high > low else 1))).astype(np.uint8)
    height, width = pixels.shape[:2]
    colour = 2 if pixels.ndim == 3 else 0
    rows = b"".join(b"\0" + row.tobytes() for row in np.ascontiguousarray(pixels))

    def chunk(name: bytes, data: bytes) -> bytes:
        return struct.pack(">I", len(data)) + name + data + struct.pack(">I", zlib.crc32(name + data))

    return (b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", struct.pack(">IIBBBBB", width, height, 8, colour, 0, 0, 0))
            + chunk(b"IDAT", zlib.compress(rows, 1)) + chunk(b"IEND", b""))


def _cell(value: Any) -> str:
    if hasattr(value, "shape") and getattr(value, "ndim", 0) > 0:
        return f"{value.dtype} {' × '.join(str(length) for length in value.shape)}"
    if isinstance(value, list):
        return f"{len(value)} × {{{', '.join(value[0]) if value else ''}}}"
    if isinstance(value, dict):
        return "{" + ", ".join(f"{key}: {_cell(item)}" for key, item in value.items()) + "}"
    text = repr(value) if isinstance(value, str) else str(value)
    return text if len(text) <= 80 else text[:77] + "..."


def record(item: Any) -> str:
    """A record as a table, with its frame."""
    rows = "".join(f"<tr><td>{html.escape(key)}</td><td>{html.escape(_cell(item[key]))}</td></tr>" for key in item)
    image = png(item.frame)
    picture = "" if image is None else \
        f'<img alt="frame" src="data:image/png;base64,{base64.b64encode(image).decode()}">'
    return f"<div>{picture}<table><tr><th>name</th><th>value</th></tr>{rows}</table></div>"


def pipeline(steps: Iterable[Any], frames: int) -> str:
    """A pipeline as a table of its steps and times."""
    rows = ""
    for step in steps:
        name = f' "{step.name}"' if step.name else ""
        each = "" if step.seconds is None or not frames else f"{step.seconds * 1e3 / frames:.3f}"
        rows += f"<tr><td>{html.escape(step.kind + name)}</td><td>{html.escape(step.class_name)}</td><td>{each}</td></tr>"
    return f"<table><tr><th>step</th><th>class</th><th>ms a frame</th></tr>{rows}</table>"
