"""Feeds frames of another library into a chain: here a generator, but any source of (h, w, 3) uint8 arrays will do.

A capture library takes the place of frames(), for example

    def frames():
        for image in imageio.imiter("<video0>"):
            yield image
"""

import numpy as np

import scansteps as ss


def frames():
    """A bright square that moves over a dark ground."""
    for shift in range(10):
        image = np.zeros((120, 160, 3), np.uint8)
        image[40:80, 20 + 8 * shift:60 + 8 * shift] = 255
        yield image


with ss.Pipeline("cyuv ! ccanny2a trl=60 trh=160") as edges:
    for number, image in enumerate(frames()):
        record = edges(image)
        lines = record["fvertsArray"]
        print(f"frame {number}: {len(lines)} lines, the longest of {max(len(line['verts']) for line in lines)} points")
