"""Report section of conversions_bench.cpp."""
from tables import by_size, kernel_table

TITLE = "Conversions"
NAMES = {"YuyvToRgb": "YUYV16 → RGB", "RgbToYuyv": "RGB → YUYV16", "FloatToOffset16": "float → offset 16-bit",
         "Offset16ToFloat": "offset 16-bit → float", "ColourLength": "RGB → length, 16-bit",
         "GreyWindow": "grey window and level", "ReduceOffset16": "reduction by 2, offset",
         "ReduceYuyv16": "reduction by 2, YUYV16"}
TARGETS = {"FloatToOffset16": "0.95, 0.7 at 640×480", "Offset16ToFloat": "0.95, 0.7 at 640×480", "ColourLength": "0.6",
           "GreyWindow": "0.6", "ReduceOffset16": "0.6", "ReduceYuyv16": "0.6",
           "YuyvToRgb_libyuv": "1.1", "RgbToYuyv_libyuv": "1.3"}


def report(runs):
    text = """
Processor time, one thread; kernel and reference alternate in blocks of 4 ms, median of 15 turns (`bench/support/ratio.h`). A
turn counts only if a test loop of additions ran at full speed before and after it: a load on the core's other hardware thread,
such as a neighbour on a shared machine, slows a kernel down by 25 % and more, but hardly affects memcpy. "Of memcpy": speed
relative to a `memcpy` of (bytes read + written) / 2. Frames are allocated like those of a chain.

Growth (target: at most 1.6) is the time per pixel in a frame of 7680×4320 over that in 640×480. The first column compares one
large frame with as many small ones as have its pixels, alternating, so that neither is in cache. The second processes the same
frame repeatedly: small frames then come from the second-level cache, large ones from memory, and kernels as fast as memory grow
like memcpy, whose growth in the same turns is given in brackets.

""" + kernel_table("of memcpy", by_size(runs, r"\w+(?<!_libyuv)"), NAMES, "of_memcpy", TARGETS)
    peers = by_size(runs, r"\w+_libyuv")
    if peers:
        text += """
Speed relative to libyuv, called line by line through ARGB, so that the line between its two calls stays in cache:

""" + kernel_table("of libyuv", peers, {k: NAMES[k.removesuffix("_libyuv")] for k in peers}, "of_libyuv", TARGETS)
    return text
