#!/usr/bin/env python3
"""Prints the report of the benchmarks that scripts/bench.sh ran, in Markdown.

usage: report.py FOLDER     FOLDER: PROGRAM.json of each program, and PROGRAM_peers.txt where there are peer scripts

Every bench/<module>/<thing>_report.py declares the section of the program <module>_<thing>_bench:
    TITLE           the section's heading
    report(runs)    optional: returns the section's body, as Markdown. `runs` maps the name of each benchmark, without
                    run parameters, to its results. By default all times and counters are listed in a table.
"""
import glob
import importlib.util
import json
import os
import re
import subprocess
import sys

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, "support"))
from tables import all_counters


def results(path):
    if not os.path.exists(path):
        return {}
    with open(path) as file:
        runs = json.load(file)["benchmarks"]
    return {re.sub(r"/(iterations:\d+|manual_time|real_time)", "", run["name"]): run for run in runs}


def declaration(path):
    spec = importlib.util.spec_from_file_location("declaration", path)
    module = importlib.util.module_from_spec(spec)
    spec.loader.exec_module(module)
    return module


def section(path, program, folder):
    """The section declared in the file, or nothing if its program did not run."""
    runs = results(os.path.join(folder, program + ".json"))
    if not runs:
        return ""
    declared = declaration(path)
    body = getattr(declared, "report", all_counters)(runs).strip("\n")
    text = f"## {declared.TITLE}\n\n    scripts/bench.sh {program}\n\n{body}\n\n"
    peers = os.path.join(folder, program + "_peers.txt")
    if os.path.exists(peers):
        with open(peers) as file:
            text += f"```\n{file.read().rstrip()}\n```\n\n"
    return text


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
for report in sorted(glob.glob(os.path.join(HERE, "*", "*_report.py"))):
    module, thing = os.path.relpath(report, HERE).removesuffix("_report.py").split(os.sep)
    print(section(report, f"{module}_{thing}_bench", sys.argv[1]), end="")
