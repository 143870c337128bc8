"""Fixtures: the photograph that comes with the project, and recordings made from it."""

import pathlib

import numpy as np
import pytest

import scansteps as ss

EXAMPLES = pathlib.Path(__file__).resolve().parents[2] / "examples" / "images"


@pytest.fixture
def photo() -> str:
    """Name of the first of the numbered photographs."""
    return str(sorted(EXAMPLES.glob("*.jpg"))[0])


@pytest.fixture
def rgb():
    """A picture with edges everywhere."""
    y, x = np.mgrid[0:48, 0:64]
    return np.stack([(x * 4) % 256, (y * 5) % 256, ((x // 8 + y // 8) % 2) * 255], axis=-1).astype(np.uint8)


@pytest.fixture
def recording(tmp_path, rgb) -> str:
    """Three frames, the n-th of them with `n`."""
    name = str(tmp_path / "three.rec")
    ss.write(name, (ss.Record({"n": n}, frame=np.roll(rgb, n, axis=1)) for n in range(3)))
    return name
