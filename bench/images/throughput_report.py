"""Report section of throughput_bench.cpp."""
from tables import table

TITLE = "Reading ahead and writing behind"
ROWS = {"edges": ("60 pictures of 1920×1088, JPEG to JPEG edges", "1.7"),
        "recording": ("`read ! ccanny ! filesaver`, 60 frames of 1920×1088", "1.4"),
        "single": ("a single picture", "0.98")}


def report(runs):
    rows = [[ROWS[name.split("/")[1]][0], f"{run['alone_ms']:.0f}", f"{run['threads_ms']:.0f}",
             f"{run['speedup']:.2f}", ROWS[name.split("/")[1]][1]] for name, run in runs.items()]
    processors = next(iter(runs.values()))["processors"]
    return (f"Whole commands on all {processors:.0f} processors, in turns with the same command without threads\n"
            "(`load.ahead=0 write.behind=0`); the speed-up is the median of the pairs.\n\n"
            + table(("command", "without, ms", "with, ms", "speed-up", "target"), rows))
