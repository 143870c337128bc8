"""Draws the corners of a picture over it, with matplotlib.

    python3 plot_corners.py examples/images/img0000.jpg corners.png
"""

import sys

import matplotlib

matplotlib.use("Agg")
import matplotlib.pyplot as plt  # noqa: E402
import numpy as np  # noqa: E402

import scansteps as ss  # noqa: E402

picture = sys.argv[1] if len(sys.argv) > 1 else "examples/images/img0000.jpg"
output = sys.argv[2] if len(sys.argv) > 2 else "corners.png"

# ccorner5 takes frames in pairs.
record = next(ss.run(f"cjread load.name={picture} ! c3f ! ccorner5", cpu_base=0, threshold=60.0, frames=2))
corners = record["vert"]  # (N, 2): x, y
angle, size = record["vertAttr"][:, 3:5].copy().view(np.float32).T

plt.figure(figsize=(8, 6))
plt.imshow(record.frame, cmap="gray")
plt.scatter(corners[:, 0], corners[:, 1], s=size, facecolors="none", edgecolors="orange", linewidths=0.6)
plt.quiver(corners[:, 0], corners[:, 1], np.cos(angle), np.sin(angle), angles="xy", color="orange", width=0.001)
plt.axis("off")
plt.savefig(output, bbox_inches="tight", dpi=120)
print(f"{len(corners)} corners in {output}")
