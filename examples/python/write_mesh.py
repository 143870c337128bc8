"""Writes a mesh made of arrays as PLY, with the step cply: a wavy surface, each triangle coloured by its height.

    python3 write_mesh.py waves.ply
"""

import sys

import numpy as np

import scansteps as ss

output = sys.argv[1] if len(sys.argv) > 1 else "waves.ply"

side = 60
y, x = np.mgrid[0:side, 0:side].astype(np.float32)
z = 3 * np.sin(x / 6) * np.cos(y / 8)
points = np.stack([x, y, z], axis=-1).reshape(-1, 3)  # one point a row
height = (z.ravel() - z.min()) / (z.max() - z.min())

corner = (np.arange(side - 1)[:, None] * side + np.arange(side - 1)).reshape(-1)
indices = np.concatenate([np.stack([corner, corner + 1, corner + side], axis=-1),
                          np.stack([corner + 1, corner + side + 1, corner + side], axis=-1)]).astype(np.int32)
level = height[indices].mean(axis=1)
colours = np.stack([255 * level, np.full_like(level, 128), 255 * (1 - level)], axis=-1)

with ss.Pipeline("cply", name=output) as write:
    write(None, {"tria": {"Vertices": points, "Indices": indices, "Tricolors": colours}})
print(f"{len(points)} points and {len(indices)} triangles in {output}")
