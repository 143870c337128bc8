"""Report section of decoder_bench.cpp."""
from tables import table

TITLE = "Baseline JPEG decoder"


def report(runs):
    rows = []
    for name, run in runs.items():
        photo, size, quality = name.split("/")
        rows.append([photo, size.replace("x", "×"), quality[1:], f"{run['real_time']:.2f}", f"{run['peer_ms']:.2f}",
                     f"{run['ratio']:.2f}"])
    return """
Decoding to three planes, one thread, compared with TurboJPEG 2.1.5 (`tjDecompressToYUVPlanes`, `TJFLAG_ACCURATEDCT`); the
planes are checked to be equal. Photographs of `examples/images`, scaled with cubic interpolation and encoded with the given
quality, 4:2:0; enlarged ones have less detail than a camera's. The ratio (peer / ours) is the median of alternating pairs;
target: 1.1.

""" + table(("photograph", "size", "quality", "ours, ms", "TurboJPEG, ms", "ratio"), rows)
