"""Turns the frames of a recording into a video through a pipe to ffmpeg.

    python3 recording_to_video.py run.rec run.mp4
"""

import subprocess
import sys

import numpy as np

import scansteps as ss

recording, output = sys.argv[1], sys.argv[2]
encoder = None
for record in ss.read(recording).frames():
    frame = record.frame
    if frame.dtype != np.uint8:  # samples of 16 bits: 32768 is black
        grey = np.clip(frame.astype(np.int32) - 32768, 0, 255).astype(np.uint8)
        frame = np.repeat(grey[..., None], 3, axis=2)
    if encoder is None:
        height, width = frame.shape[:2]
        encoder = subprocess.Popen(
            ["ffmpeg", "-loglevel", "error", "-y", "-f", "rawvideo", "-pix_fmt", "rgb24", "-s", f"{width}x{height}",
             "-r", "25", "-i", "-", "-pix_fmt", "yuv420p", output], stdin=subprocess.PIPE)
    encoder.stdin.write(np.ascontiguousarray(frame).data)
if encoder is None:
    sys.exit(f"{recording} has no frames")
encoder.stdin.close()
sys.exit(encoder.wait())
