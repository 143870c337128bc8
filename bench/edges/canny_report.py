"""Report section of canny_bench.cpp."""
from tables import SIZES, by_size, growth, kernel_table, table

TITLE = "Filters and edge detector"
NAMES = {f"SobelX/{k}": f"Sobel {k}" for k in (3, 5, 7)} | {f"LowPass/{k}": f"box {k}×{k}" for k in (3, 5, 7)}
TARGETS = {name: "0.9, 0.7 from 2160p" if name.endswith("/3") else "0.5" for name in NAMES}


def detector_rows(runs):
    for name, sizes in by_size(runs, r"Canny.*").items():
        target = "4" if "lp1" in name else "5" if "_3_" in name else "3" if name.startswith("CannyPlane") else ""
        yield [name.split("/", 1)[1], f"{sizes[SIZES[0]]['edge_%']:.1f} %",
               *(f"{sizes[s].get('of_vips', 0):.1f} ({sizes[s]['MPix/s']:.0f})" for s in SIZES), target,
               *growth(sizes, "of_vips")]


def report(runs):
    return """
Filters on float planes. "Of memcpy" and growth as under "Conversions".

""" + kernel_table("of memcpy", by_size(runs, r"(SobelX|LowPass)/\d"), NAMES, "of_memcpy", TARGETS) + """
The detector on photographs (reflected copies in larger frames): speed relative to libvips' `canny` on 8 bits, one thread,
without smoothing; it applies neither thresholds nor hysteresis. In brackets: MPix/s. Names contain aperture and thresholds;
`lp` is the number of low passes, from a 16-bit frame to a 16-bit frame.

""" + table(("photograph", "edge pixels", *SIZES, "target", "growth", "growth, cached"), detector_rows(runs))
