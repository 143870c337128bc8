#!/usr/bin/env python3
"""Corner responses of scikit-image and VIGRA and scikit-image's ORB on the photograph of corners_corners_bench.

Debian packages: python3-skimage, python3-vigra, python3-numpy. Prints processor time in milliseconds, median of
five calls, fastest first. scripts/bench.sh runs it pinned and with one thread, right after the benchmark.
"""
import os
import statistics
import time

import numpy as np
import vigra
from skimage import feature, io

HERE = os.path.dirname(os.path.abspath(__file__))
rgb = io.imread(os.path.join(HERE, "..", "..", "examples", "images", "img0000.jpg"))
grey = np.rint(rgb @ np.array([0.299, 0.587, 0.114])).astype(np.float32)
as_vigra = vigra.taggedView(grey, "yx")


def orb():
    detector = feature.ORB(n_keypoints=1000)
    detector.detect_and_extract(grey / 255)


RESPONSES = {
    "skimage corner_shi_tomasi, sigma 1": lambda: feature.corner_shi_tomasi(grey, sigma=1),
    "skimage corner_harris, sigma 1": lambda: feature.corner_harris(grey, sigma=1),
    "skimage hessian_matrix_det, sigma 1": lambda: feature.hessian_matrix_det(grey, sigma=1),
    "skimage corner_fast, 9": lambda: feature.corner_fast(grey / 255, 9, 0.1),
    "vigra cornernessHarris, 1": lambda: vigra.analysis.cornernessHarris(as_vigra, 1.0),
    "vigra cornernessFoerstner, 1": lambda: vigra.analysis.cornernessFoerstner(as_vigra, 1.0),
    "vigra cornernessRohr, 1": lambda: vigra.analysis.cornernessRohr(as_vigra, 1.0),
    "vigra cornernessBeaudet, 1": lambda: vigra.analysis.cornernessBeaudet(as_vigra, 1.0),
}


def milliseconds(call):
    times = []
    for _ in range(5):
        start = time.process_time()
        call()
        times.append(1e3 * (time.process_time() - start))
    return statistics.median(times)


print(f"{grey.shape[1]} x {grey.shape[0]}")
for took, name in sorted((milliseconds(call), name) for name, call in RESPONSES.items()):
    print(f"{took:9.2f} ms  {name}")
print(f"{milliseconds(orb):9.2f} ms  skimage ORB, 1000 features, detected and described")
