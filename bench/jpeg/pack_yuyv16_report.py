"""Report section of pack_yuyv16_bench.cpp."""
TITLE = "Packing of planes to YUYV16"


def report(runs):
    return ("Alternating with `memcpy` of the bytes written (memcpy / ours): " + ", ".join(
        f"{name.split('/', 1)[1].replace('/', '×')} {run['ratio']:.2f}" for name, run in runs.items()) + ".")
