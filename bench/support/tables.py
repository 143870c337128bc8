"""Markdown tables for the sections of the report."""
import re

SIZES = ("640×480", "1920×1080", "3840×2160", "7680×4320")
STANDARD = {"family_index", "per_family_instance_index", "repetitions", "repetition_index", "threads", "iterations",
            "real_time", "cpu_time"}


def table(head, rows):
    lines = ["| " + " | ".join(row) + " |\n" for row in (head, *rows)]
    return "".join([lines[0], "|" + "---|" * len(head) + "\n", *lines[1:]])


def all_counters(runs):
    """The time and every counter of every run."""
    counters = sorted({key for run in runs.values() for key, value in run.items()
                       if key not in STANDARD and isinstance(value, (int, float))})
    return table(["benchmark", "time", *counters],
                 [[name, f"{run['real_time']:.3g} {run['time_unit']}",
                   *(f"{run[key]:.4g}" if key in run else "" for key in counters)] for name, run in runs.items()])


def by_size(runs, pattern):
    """The results of the runs "PATTERN/width/height": for each kernel, in order, its results by size."""
    kernels = {}
    for name, run in runs.items():
        found = re.fullmatch(r"(.+)/(\d+)/(\d+)", name)
        if found and re.fullmatch(pattern, found[1]):
            kernels.setdefault(found[1], {})[f"{found[2]}×{found[3]}"] = run
    return kernels


def growth(sizes, ratio):
    """Time per pixel of the largest frames over that of the smallest: with neither in cache, then with the same frame
    processed repeatedly, followed in brackets by the growth of the memcpy that took turns with it."""
    first, last = sizes[SIZES[0]], sizes[SIZES[-1]]
    ours = first["MPix/s"] / last["MPix/s"]
    repeated = f"{ours:.1f}" + (f" ({ours * last[ratio] / first[ratio]:.1f})" if ratio == "of_memcpy" else "")
    return [f"{last['growth']:.2f}" if "growth" in last else "", repeated]


def kernel_table(label, kernels, names, ratio, targets):
    """A row per kernel: its counter `ratio` at each size, its target and its growth."""
    return table((label, *SIZES, "target", "growth", "growth, cached"),
                 [[names.get(kernel, kernel), *(f"{sizes[s][ratio]:.2f}" for s in SIZES), targets.get(kernel, ""),
                   *growth(sizes, ratio)] for kernel, sizes in kernels.items()])


def ratios(runs, peers):
    """A row per run and peer; `peers` maps the counter with the ratio to the peer's name."""
    return table(("what", "peer", "ratio"), [[name, text, f"{run[counter]:.2f}"] for name, run in runs.items()
                                             for counter, text in peers.items() if counter in run])
