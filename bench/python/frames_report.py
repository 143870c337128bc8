"""Report section of frames_bench.py."""
import textwrap

TITLE = "Python package"


def report(runs):
    frame, read = runs["overhead"], runs["read"]
    more = frame["real_time"] - frame["host"]
    text = f"""A one-step chain (`cyuv`) with 640×480 frames spends {frame['real_time']:.1f} µs a frame outside the step when it is called
from Python and {frame['host']:.1f} µs in the program: {abs(more):.1f} µs {'more' if more > 0 else 'less, as the program clears its frame every time'} (target: at most 20 more).
Iterating over a recording of 300 such frames is {read['host'] / read['real_time']:.2f} times as fast as `scansteps run "read ! clast"`
(target: 0.9)."""
    if "canny" in runs:
        canny = runs["canny"]
        text += f""" `ccanny` on a photograph, called from Python, is {canny['skimage'] / canny['real_time']:.0f} times as fast as
scikit-image's `canny` ({canny['real_time']:.2f} and {canny['skimage']:.1f} ms)."""
    return textwrap.fill(text, 120)
