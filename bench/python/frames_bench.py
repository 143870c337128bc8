#!/usr/bin/python3
"""What the Python package adds to a chain, and how fast it reads recordings, in turns with the program; and the edge
detector beside scikit-image's on one photograph. Takes --benchmark_out=FILE like the other benchmarks."""
import json
import os
import pathlib
import subprocess
import sys
import tempfile
import time

BIN = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(BIN.parent / "python"))

import numpy as np  # noqa: E402

import scansteps as ss  # noqa: E402

ROUNDS = 7
PHOTO = os.environ.get("BENCH_PHOTO", "examples/images/img0000.jpg")


def program(pipeline, *options):
    """(seconds, seconds in steps, frames) of a run of the program."""
    report = json.loads(subprocess.run([BIN / "scansteps", "run", pipeline, "--quiet", "--step-output", "none", "--report", "-", *options],
                                       capture_output=True, text=True, check=True).stdout)
    return report["seconds"], sum(step.get("seconds", 0) for step in report["steps"]), report["frames"]


def overhead():
    """Microseconds a frame outside the step: of the program, and of a loop in Python."""
    frames = 2000
    rgb = np.zeros((480, 640, 3), np.uint8)
    ours, theirs = [], []
    for _ in range(ROUNDS):
        seconds, inside, count = program("cyuv", "--frames", str(frames), "--set", "dataX=640", "--set", "dataY=480",
                                         "--set", "dataFormat=CPU::u_1x8")
        theirs.append((seconds - inside) / count * 1e6)
        with ss.Pipeline("cyuv") as steps:
            steps(rgb)
            before = steps.steps[0].seconds
            start = time.perf_counter()
            for _ in range(frames):
                steps(rgb).frame
            ours.append((time.perf_counter() - start - (steps.steps[0].seconds - before)) / frames * 1e6)
    return float(np.median(ours)), float(np.median(theirs))


def reading(folder):
    """Seconds for a recording: the program's `read ! clast`, and iterating in Python."""
    name = os.path.join(folder, "frames.rec")
    frame = np.random.default_rng(1).integers(0, 65535, (480, 640), np.uint16)
    ss.write(name, (ss.Record({"n": n}, frame=frame) for n in range(300)))
    ours, theirs = [], []
    for _ in range(ROUNDS):
        theirs.append(program(f"read load.name={name} ! clast")[0])
        start = time.perf_counter()
        for record in ss.read(name):
            record.frame
        ours.append(time.perf_counter() - start)
    return float(np.median(ours)), float(np.median(theirs))


def detectors():
    """Seconds of the edge detector and of scikit-image's on the same grey picture; None without scikit-image."""
    try:
        from skimage.feature import canny
    except ImportError:
        return None
    frame = next(ss.run(f"cjread load.name={PHOTO} ! c3f", frames=1)).frame
    grey = (frame.astype(np.float32) - 32768) / 255
    ours, theirs = [], []
    with ss.Pipeline("ccanny", trl=60.0, trh=160.0) as edges:
        for _ in range(ROUNDS):
            start = time.perf_counter()
            for _ in range(20):
                edges(frame).frame
            ours.append((time.perf_counter() - start) / 20)
            start = time.perf_counter()
            canny(grey)
            theirs.append(time.perf_counter() - start)
    return float(np.median(ours)), float(np.median(theirs))


def main():
    out = next((word.split("=", 1)[1] for word in sys.argv if word.startswith("--benchmark_out=")), None)
    sys.stdout.flush()
    silent = os.open(os.devnull, os.O_WRONLY)  # the steps print their times
    os.dup2(silent, 1)
    with tempfile.TemporaryDirectory() as folder:
        python, host = overhead()
        read, played = reading(folder)
    runs = [{"name": "overhead", "real_time": python, "host": host}, {"name": "read", "real_time": read * 1e3, "host": played * 1e3}]
    pair = detectors()
    if pair:
        runs.append({"name": "canny", "real_time": pair[0] * 1e3, "skimage": pair[1] * 1e3})
    text = json.dumps({"benchmarks": runs}, indent=1)
    if out:
        pathlib.Path(out).write_text(text)
    else:
        print(text, file=sys.stderr)


main()
