"""Report section of record_bench.cpp."""
TITLE = "Records"


def report(runs):
    return "A record of 20 small entries: " + ", ".join(
        f"{run['entries/s'] / 1e6:.1f} million entries per second {name}d" for name, run in runs.items()) + "."
