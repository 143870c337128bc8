"""Report section of recording_bench.cpp."""
from tables import ratios

TITLE = "Recording and replay"


def report(runs):
    return """
640×480 frames of 16-bit samples. Processor time, alternating with the peer, ratio peer / ours, median. Files are kept in
memory and created anew for each measurement.

""" + ratios(runs, {"of_writev": "`writev()` loop with the same bytes", "of_read": "`read()` loop into one buffer"})
