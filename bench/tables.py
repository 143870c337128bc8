#!/usr/bin/env python3
"""Markdown tables from the files that scripts/bench.sh has the benchmarks write.

usage: tables.py FOLDER     FOLDER: one PROGRAM.json for each benchmark program that ran
"""
import json
import os
import re
import subprocess
import sys

FOLDER = sys.argv[1]
SIZES = ("640×480", "1920×1080", "3840×2160", "7680×4320")


def results(program):
    """Name of each benchmark, without the run's parameters, and what it measured; nothing when it did not run."""
    path = os.path.join(FOLDER, program + ".json")
    if not os.path.exists(path):
        return {}
    with open(path) as file:
        runs = json.load(file)["benchmarks"]
    return {re.sub(r"/(iterations:\d+|manual_time|real_time)", "", run["name"]): run for run in runs}


def by_size(runs, pattern):
    """Of the runs "PATTERN/width/height": the kernels in order, each with its measurements by size."""
    table = {}
    for name, run in runs.items():
        found = re.fullmatch(r"(.+)/(\d+)/(\d+)", name)
        if found and re.fullmatch(pattern, found[1]):
            table.setdefault(found[1], {})[f"{found[2]}×{found[3]}"] = run
    return table


def table(head, rows):
    print("| " + " | ".join(head) + " |")
    print("|" + "---|" * len(head))
    for row in rows:
        print("| " + " | ".join(row) + " |")
    print()


def section(title, text):
    print("## " + title + "\n\n" + text.strip("\n") + "\n")


def command(program):
    return f"    scripts/bench.sh {program}\n"


def growth(sizes, ratio):
    """Time a pixel of the largest frames over that of the smallest: out of cache, then with each frame met again and
    again, in brackets that of the memcpy of the same turns."""
    first, last = sizes[SIZES[0]], sizes[SIZES[-1]]
    ours = first["MPix/s"] / last["MPix/s"]
    again = f"{ours:.1f}" + (f" ({ours * last[ratio] / first[ratio]:.1f})" if ratio == "of_memcpy" else "")
    return [f"{last['growth']:.2f}" if "growth" in last else "", again]


def kernel_rows(kernels, names, ratio, goals):
    for kernel, sizes in kernels.items():
        yield ([names.get(kernel, kernel)] + [f"{sizes[s][ratio]:.2f}" for s in SIZES] +
               [goals.get(kernel, "")] + growth(sizes, ratio))


def decoder():
    runs = results("jpeg_decoder_bench")
    if not runs:
        return
    section("Baseline JPEG decoder", command("jpeg_decoder_bench") + """
To three planes, one thread, against TurboJPEG 2.1.5 (`tjDecompressToYUVPlanes`, `TJFLAG_ACCURATEDCT`); the planes are
compared and equal. Photographs of `examples/images`, scaled with cubic interpolation and encoded at that quality, 4:2:0;
enlarged ones have less detail than a camera's. The ratio (peer / ours) is the median of pairs measured by turns; to reach: 1.1.
""")
    rows = []
    for name, run in runs.items():
        photo, size, quality = name.split("/")
        rows.append([photo, size.replace("x", "×"), quality[1:], f"{run['real_time']:.2f}", f"{run['peer_ms']:.2f}",
                     f"{run['ratio']:.2f}"])
    table(("photograph", "size", "quality", "ours, ms", "TurboJPEG, ms", "ratio"), rows)


def packing():
    runs = results("jpeg_pack_yuyv16_bench")
    if not runs:
        return
    section("Packing of planes to YUYV16", command("jpeg_pack_yuyv16_bench") + """
Against `memcpy` of the bytes written, by turns (memcpy / ours): """ +
            ", ".join(f"{k.split('/', 1)[1].replace('/', '×')} {r['ratio']:.2f}" for k, r in runs.items()) + ".")


def conversions():
    runs = results("pixels_conversions_bench")
    if not runs:
        return
    section("Conversions", command("pixels_conversions_bench") + """
Processor time, one thread; kernel and yardstick take turns in blocks of 4 ms, median of 15 turns (`bench/support/ratio.h`).
A turn counts if the core was whole before and after it, shown by additions at full speed: who runs on its other hardware
thread, such as a neighbour on a shared machine, slows a kernel down by a quarter and more, but hardly memcpy.
"Of memcpy": of a `memcpy` that moves (bytes read + written) / 2. Frames lie in memory as a chain's do.

Growth (to reach: 1.6 at most) is the time a pixel takes in a frame of 7680×4320 over that in 640×480. The first number is
the kernel's own: one large frame, then as many small ones as have its pixels, by turns, so that neither size is in a cache.
The second meets every frame again and again; a small one then comes from the second-level cache, a large one from memory,
and what is as quick as memory grows with memcpy, whose growth in the same turns stands in brackets.
""")
    names = {"YuyvToRgb": "YUYV16 → RGB", "RgbToYuyv": "RGB → YUYV16", "FloatToOffset16": "float → offset 16-bit",
             "Offset16ToFloat": "offset 16-bit → float", "RgbToOffset16": "RGB → length, 16-bit",
             "GreyWindow": "grey window and level", "ReduceOffset16": "reduction by 2, offset",
             "ReduceYuyv16": "reduction by 2, YUYV16"}
    goals = {k: "0.95, 0.7 at 640×480" for k in ("FloatToOffset16", "Offset16ToFloat")}
    goals |= {k: "0.6" for k in ("RgbToOffset16", "GreyWindow", "ReduceOffset16", "ReduceYuyv16")}
    head = ("of memcpy",) + SIZES + ("to reach", "growth", "in cache first")
    table(head, kernel_rows(by_size(runs, r"\w+(?<!_libyuv)"), names, "of_memcpy", goals))
    peers = by_size(runs, r"\w+_libyuv")
    if peers:
        print("Times as fast as libyuv, called line by line through ARGB so that the line between its two calls stays in "
              "cache:\n")
        names = {k: names[k.removesuffix("_libyuv")] for k in peers}
        table(("of libyuv",) + head[1:], kernel_rows(peers, names, "of_libyuv",
                                                    {"YuyvToRgb_libyuv": "1.1", "RgbToYuyv_libyuv": "1.3"}))


def edges():
    runs = results("edges_canny_bench")
    if not runs:
        return
    section("Filters and edge detector", command("edges_canny_bench") + "\nFilters on float planes, of memcpy as above:")
    goals = {"SobelX/3": "0.9, 0.7 from 2160p", "LowPass/3": "0.9, 0.7 from 2160p"}
    filters = by_size(runs, r"(SobelX|LowPass)/\d")
    names = {f"SobelX/{k}": f"Sobel {k}" for k in (3, 5, 7)} | {f"LowPass/{k}": f"box {k}×{k}" for k in (3, 5, 7)}
    table(("of memcpy",) + SIZES + ("to reach", "growth", "in cache first"),
          kernel_rows(filters, names, "of_memcpy", {k: goals.get(k, "0.5") for k in filters}))
    print("The detector on photographs (reflected copies in larger frames), times as fast as libvips' `canny` on 8 bits, one\n"
          "thread, its smoothing off, which neither thresholds nor follows edges. In brackets: MPix/s. Names give aperture and\n"
          "thresholds; `lp` is the number of low passes before, from a 16-bit frame to a 16-bit frame.\n")
    rows = []
    for name, sizes in by_size(runs, r"Canny.*").items():
        goal = "4" if "lp1" in name else "5" if "_3_" in name else "3" if name.startswith("CannyPlane") else ""
        first = sizes[SIZES[0]]
        rows.append([name.split("/", 1)[1], f"{first['edge_%']:.1f} %"] +
                    [f"{sizes[s].get('of_vips', 0):.1f} ({sizes[s]['MPix/s']:.0f})" for s in SIZES] +
                    [goal] + growth(sizes, "of_vips"))
    table(("photograph", "edge pixels") + SIZES + ("to reach", "growth", "in cache first"), rows)


def pipeline():
    runs = results("images_pipeline_bench")
    for name, run in runs.items():
        size = name.split("/", 1)[1].replace("/", "×")
        section("Demo pipeline", command("images_pipeline_bench") + f"""
The steps of `examples/edges.json` on photographs of {size}, JPEG file to JPEG file of edges: {run['real_time']:.1f} ms a frame.
The JPEG library called alone on the same frames, in turns with the whole, takes {run['jpeg_%']:.0f} % of that, the edge
detector {run['canny_%']:.0f} %, together {run['jpeg_%'] + run['canny_%']:.0f} % (to reach: 85). The rest is two colour
conversions, the writer's own copy of the frame, and records.
""")


def steps():
    runs = results("core_chain_bench")
    if runs:
        section("Chain", command("core_chain_bench") + """
A step that takes the frame and does nothing with it, a record of 20 entries, one of them a struct of three: dispatch, copy
of the record, forward. To reach: 1.5 µs a step.
""")
        table(("steps in the chain", "µs a step"),
              [[name.split("/")[1], f"{run['s/step'] * 1e6:.2f}"] for name, run in runs.items()])
    rows = []
    against = {"of_writev": "`writev()` loop of the same bytes", "of_read": "`read()` loop into one buffer",
               "of_send_recv": "`send`/`recv` loop of the same sizes, both ends on one core",
               "of_memcpy": "`memcpy` of the frames"}
    for program in ("recording_recording_bench", "recording_sender_bench"):
        for name, run in results(program).items():
            rows += [[name, text, f"{run[label]:.2f}"] for label, text in against.items() if label in run]
    if rows:
        section("Recording, streams and buffers", command("recording_recording_bench recording_sender_bench") + """
640×480 frames of 16-bit samples; processor time, by turns (peer / ours), median of the turns. Files lie in memory and are
created anew each turn.
""")
        table(("what", "against", "ratio"), rows)
    runs = results("core_record_bench")
    if runs:
        print("A record of 20 small entries: " + ", ".join(
            f"{run['entries/s'] / 1e6:.1f} million entries a second {name}d" for name, run in runs.items()) + ".\n")


def models():
    runs = results("mesh_writers_bench")
    if not runs:
        return
    section("Model files", command("mesh_writers_bench") + f"""
A torus of 500,000 vertices and a million triangles to storage in memory, processor time. STL, its normals included, runs at
{runs['stlOfBareWrite']['of_write']:.2f} of a bare `write()` of the same bytes, by turns (to reach: 0.6). Meshio and VTK, called from
Python, take turns with ours, best of three; to reach: 10 times the fastest peer for PLY and OBJ, 5 times for STL.
""")
    print("```")
    with open(os.path.join(FOLDER, "model_peers.txt")) as file:
        print(file.read().rstrip())
    print("```\n")
    table(("assimp (in the same program)", "M triangles/s"),
          [[name.split("assimp")[1], f"{run['triangles/s'] / 1e6:.2f}"] for name, run in runs.items() if "assimp" in name])
    print(f"OpenFlight: {runs['flt']['triangles/s'] / 1e6:.1f} M triangles/s.\n")


STANDARD = {"family_index", "per_family_instance_index", "repetitions", "repetition_index", "threads", "iterations",
            "real_time", "cpu_time"}


def others():
    """Programs without goals of their own: each time and each counter."""
    for program, title in (("capture_capture_bench", "Capture (1920×1080 YUY2, camera and chain on one core)"),
                           ("grey_planes_bench", "Planes of features"), ("corners_corners_bench", "Corner detector"),
                           ("regions_mser_bench", "Stable regions"),
                           ("edges_steps_bench", "Steps of the edge family, a frame of 1920×1088"),
                           ("edges_growth_bench", "Growth of the other kernels, 640×480 to 7680×4320 (to reach: 1.6 at most)")):
        runs = results(program)
        if not runs:
            continue
        section(title, command(program))
        counters = sorted({key for run in runs.values() for key, value in run.items()
                           if key not in STANDARD and isinstance(value, (int, float))})
        table(["benchmark", "time", *counters],
              [[name, f"{run['real_time']:.3g} {run['time_unit']}", *(f"{run[key]:.4g}" if key in run else "" for key in counters)]
               for name, run in runs.items()])


def machine():
    with open("/proc/cpuinfo") as file:
        facts = dict(line.split(":", 1) for line in file.read().split("\n\n")[0].splitlines() if ":" in line)
    facts = {key.strip(): value.strip() for key, value in facts.items()}
    wide = "AVX-512" if "avx512bw" in facts["flags"] else "AVX2" if "avx2" in facts["flags"] else "SSE4"
    compiler = subprocess.run(["c++", "-dumpfullversion"], capture_output=True, text=True, check=True).stdout.strip()
    return (f"{facts['model name']} (family {facts['cpu family']}, model {facts['model']}, {wide}), GCC {compiler}, "
            f"load at the end {os.getloadavg()[1]:.1f}")


print("# Measurements\n")
print("Written by `scripts/bench.sh`: one pinned core, warm-ups discarded, medians, every ratio from one run. "
      "Do not edit.\n")
print(machine() + ".\n")
for part in (decoder, packing, conversions, edges, pipeline, steps, models, others):
    part()
