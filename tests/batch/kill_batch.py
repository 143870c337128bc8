#!/usr/bin/env python3
"""Kills a batch with SIGKILL at random moments, resumes it after each, and checks what it has written in the end.

usage: kill_batch.py BIN [--kills 50] [--jobs 300] [--seed 1]      BIN holds the program and the library

What must hold: after a kill no job lives on; every output is that of a batch that nobody killed, byte for byte, and there is
no other file; nothing that was complete is done again.
"""
import argparse
import json
import os
import random
import shutil
import signal
import subprocess
import sys
import tempfile
import time

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import trees

PIPELINE = ("cjread load.incr=0 ! cyuv ! ccanny trl=60 trh=160 ! cjwrite name='out/{stem}/edge0000.jpg' "
            "! filesaver name='out/{stem}/run.rec' ! clast")


def command(program):
    return [program, "batch", PIPELINE, "--each", "in/*.ppm", "--frames", "3", "-j", "2", "--dir", "state", "--resume",
            "--quiet"]


def living(folder):
    """Processes that work in the folder."""
    found = []
    for name in os.listdir("/proc"):
        try:
            if name.isdigit() and os.readlink(f"/proc/{name}/cwd") == folder and int(name) != os.getpid():
                found.append(int(name))
        except OSError:
            pass
    return found


def complete(state):
    """Numbers of the jobs that are known to have ended well, by the journal or by their own report."""
    done = {line["job"] for line in trees.journal(state) if line.get("state") == "done"}
    reports = os.path.join(state, "reports")
    for name in os.listdir(reports) if os.path.isdir(reports) else []:
        if name.endswith(".json"):
            with open(os.path.join(reports, name)) as file:
                if json.load(file)["exitCode"] == 0:
                    done.add(int(name[:-5]))
    return done


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("bin")
    parser.add_argument("--kills", type=int, default=50)
    parser.add_argument("--jobs", type=int, default=300)
    parser.add_argument("--seed", type=int, default=1)
    options = parser.parse_args()
    program = os.path.join(os.path.abspath(options.bin), "scansteps")
    chance = random.Random(options.seed)
    base = os.path.realpath(tempfile.mkdtemp(prefix="scansteps-kill-"))
    try:
        run(options, program, chance, base)
    finally:
        shutil.rmtree(base)


def run(options, program, chance, base):
    whole, killed = os.path.join(base, "whole"), os.path.join(base, "killed")
    for job in range(options.jobs):
        trees.picture(f"{whole}/in/{trees.letters(job // 26)}{trees.letters(job)}.ppm", job)
    os.makedirs(killed)
    os.symlink(f"{whole}/in", f"{killed}/in")
    begin = time.monotonic()
    subprocess.run(command(program), cwd=whole, check=True)
    seconds = time.monotonic() - begin
    wanted = trees.contents(f"{whole}/out")
    assert len(wanted) == 4 * options.jobs, len(wanted)

    state, finished, starts, again = f"{killed}/state", set(), 0, []
    for _ in range(options.kills):
        batch = subprocess.Popen(command(program), cwd=killed)
        time.sleep(chance.uniform(0, 1.8 * seconds / options.kills))
        batch.send_signal(signal.SIGKILL)
        batch.wait()
        limit = time.monotonic() + 2
        while living(killed) and time.monotonic() < limit:
            time.sleep(0.005)
        assert not living(killed), "a job outlives its batch"
        lines = [line for line in trees.journal(state) if line.get("state") == "started"]
        again += [line["job"] for line in lines[starts:] if line["job"] in finished]
        starts, finished = len(lines), complete(state)
    before = len(finished)
    subprocess.run(command(program), cwd=killed, check=True)

    lines = [line for line in trees.journal(state) if line.get("state") == "started"]
    again += [line["job"] for line in lines[starts:] if line["job"] in finished]
    trees.check_same(wanted, trees.contents(f"{killed}/out"))
    assert not again, f"repeated although complete: {again}"
    assert len(lines) <= options.jobs + 2 * options.kills, len(lines)
    print(f"kill_batch: {options.kills} kills, {options.jobs} jobs, {before} of them complete before the last resume; "
          f"{len(lines)} starts, {len(lines) - options.jobs} of them of jobs that a kill had cut off; "
          f"{len(wanted)} files as of a batch that was not killed, none else; nothing complete was repeated")


main()
