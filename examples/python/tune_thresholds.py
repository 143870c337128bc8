"""Tries a grid of thresholds on one picture and prints how many edge pixels each pair leaves.

    python3 tune_thresholds.py examples/images/img0000.jpg
"""

import sys

import numpy as np

import scansteps as ss

picture = sys.argv[1] if len(sys.argv) > 1 else "examples/images/img0000.jpg"
frame = next(ss.run(f"cjread load.name={picture} ! c3f", frames=1)).frame

with ss.Pipeline("ccanny") as edges:
    print(f"{'trl':>6} {'trh':>6} {'edge pixels':>12}")
    for low in (20.0, 60.0, 120.0):
        for high in (160.0, 320.0, 640.0):
            edges.set(trl=low, trh=high)
            share = np.count_nonzero(edges(frame).frame > 32768) / frame.size
            print(f"{low:6.0f} {high:6.0f} {share:12.2%}")
