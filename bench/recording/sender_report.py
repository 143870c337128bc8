"""Report section of sender_bench.cpp."""
from tables import ratios

TITLE = "Streams and buffers"


def report(runs):
    return """
640×480 frames of 16-bit samples. Processor time, alternating with the peer, ratio peer / ours, median.

""" + ratios(runs, {"of_send_recv": "`send`/`recv` loop with the same sizes, both ends on one core",
                    "of_memcpy": "`memcpy` of the frames"})
