"""Tries a grid of thresholds on one picture and prints how many edge pixels each pair leaves.

    python3 tune_thresholds.py examples/images/img0000.jpg
"""

import sys

import numpy as np

import scansteps as ss

picture = sys.argv[1] if len(sys.argv) > 1 else "examples/images/img0000.jpg"
frame = next(ss.run(f"cjread load.name={picture} ! cyuv", frames=1))

with ss.Pipeline("ccanny", VideoFormat=frame.get("VideoFormat", 0)) as edges:
    print(f"{'trl':>6} {'trh':>6} {'share of edge pixels':>22}")
    for low in (20.0, 60.0, 120.0):
        for high in (80.0, 160.0, 320.0):
            edges.set(trl=low, trh=high)
            result = edges(frame.frame).frame
            print(f"{low:6.0f} {high:6.0f} {np.count_nonzero(result > 32768) / result.size:22.2%}")
