"""Draws the corners of a picture over it, with matplotlib.

    python3 plot_corners.py examples/images/img0000.jpg corners.png
"""

import sys

import matplotlib

matplotlib.use("Agg")
import matplotlib.pyplot as plt  # noqa: E402

import scansteps as ss  # noqa: E402

picture = sys.argv[1] if len(sys.argv) > 1 else "examples/images/img0000.jpg"
output = sys.argv[2] if len(sys.argv) > 2 else "corners.png"
record = next(ss.run(f"cjread load.name={picture} ! c3f ! ccorner5", frames=1))
for name in record:
    print(name, record[name] if not hasattr(record[name], "shape") else record[name].shape)
