#!/usr/bin/env python3
"""Batches on a real Slurm cluster: run inside scripts/slurm.sh, which starts one.

usage: scripts/slurm.sh tests/batch/slurm_batch.py BIN

1. 40 jobs; one slurmd is killed together with its step daemons while jobs run on its node. Nothing is lost.
2. The batch itself is killed and resumed: it attaches to its array.
3. The batch is interrupted: the array is cancelled; resumed, it finishes.
4. One job cannot be done: what failed, and nothing else, is submitted again.
"""
import json
import os
import shutil
import signal
import subprocess
import sys
import tempfile
import time

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import trees

# A thousand passes of a filter take a while; the frames that are written are small.
PIPELINE = ("cjread load.incr=0 ! cyuv ! ccanny trl=2 trh=8 lp0=1000 ! cdown1 factor=8 ! cjwrite name='out/{stem}/edge0000.jpg' "
            "! filesaver name='out/{stem}/run.rec' ! clast")


def output(*words):
    return subprocess.run(words, capture_output=True, text=True, check=True).stdout


class Batch:
    def __init__(self, program, folder, jobs, frames):
        self.folder, self.jobs, self.state = folder, jobs, folder + "/state"
        for job in range(jobs):
            trees.picture(f"{folder}/in/{trees.letters(job)}.ppm", job, 640, 480)
        self.words = [program, "batch", PIPELINE, "--each", "in/*.ppm", "--frames", str(frames), "--dir"]
        begin = time.monotonic()
        subprocess.run(self.words + ["whole", "--quiet"], cwd=folder, check=True)
        print(f"slurm_batch: {jobs} jobs on the local engine, {time.monotonic() - begin:.1f} s", flush=True)
        self.wanted = trees.contents(folder + "/out")
        shutil.rmtree(folder + "/out")

    def start(self, *more):
        words = self.words + ["state", "--engine", "slurm", "--report", "report.json", "--mem", "200", *more]
        return subprocess.Popen(words, cwd=self.folder, stderr=subprocess.PIPE, text=True)

    def lines(self, state):
        return [line for line in trees.journal(self.state) if line.get("state") == state and "job" in line]

    def wait_for(self, done, batch):
        limit = time.monotonic() + 120
        while len(self.lines("done")) < done and time.monotonic() < limit:
            assert batch.poll() is None, batch.stderr.read()
            time.sleep(0.05)

    def finish(self, batch, code=0):
        _, text = batch.communicate(timeout=400)
        assert batch.returncode == code, (batch.returncode, text)
        return text

    def check(self):
        trees.check_same(self.wanted, trees.contents(self.folder + "/out"))
        done = [line["job"] for line in self.lines("done")]
        assert sorted(done) == list(range(self.jobs)), "a job is done twice or not at all"
        with open(self.folder + "/report.json") as file:
            report = json.load(file)
        assert report["done"] == self.jobs and report["failed"] == 0, report
        # Of two runs of a job the first had ended, or was dead, before the second began.
        for job in range(self.jobs):
            with open(f"{self.state}/status/{job}.jsonl") as file:
                states = [json.loads(line)["state"] for line in file if line.strip()]
            assert states[-1] == "done" and states.count("done") == 1, states


def kill_node(name):
    """As if the machine had lost its power: the daemon of the node and its step daemons are gone at once."""
    on_node = {line.split("|")[0] for line in output("squeue", "-h", "-t", "R", "-w", name, "-o", "%A|%N").splitlines()}
    with open(f"{os.environ['SLURM_TEST_DIR']}/{name}.pid") as file:
        victims = [int(file.read())]
    for process in filter(str.isdigit, os.listdir("/proc")):
        try:
            with open(f"/proc/{process}/cmdline") as file:
                words = file.read().replace("\0", " ")
        except OSError:
            continue
        if words.startswith("slurmstepd: [") and words[13:].split(".")[0] in on_node:
            victims.append(int(process))
    for victim in victims:
        os.kill(victim, signal.SIGKILL)
    return len(victims) - 1


def jobs_on(name):
    found = []
    for process in filter(str.isdigit, os.listdir("/proc")):
        try:
            with open(f"/proc/{process}/environ", "rb") as file:
                if b"SLURMD_NODENAME=" + name.encode() in file.read().split(b"\0"):
                    found.append(int(process))
        except OSError:
            pass
    return found


def node_failure(program, folder):
    batch = Batch(program, folder, 40, 40)
    begin = time.monotonic()
    running = batch.start()
    batch.wait_for(8, running)
    while len(output("squeue", "-h", "-t", "R", "-w", "n2", "-o", "%A").split()) < 2:
        time.sleep(0.05)
    steps = kill_node("n2")
    assert steps > 0, "no job ran on the node"
    time.sleep(0.5)
    assert not jobs_on("n2"), "jobs outlive the step daemon"
    print(f"slurm_batch: killed slurmd n2 and {steps} step daemons after {len(batch.lines('done'))} jobs; "
          "their jobs are gone too", flush=True)
    batch.finish(running)
    batch.check()
    starts = sum(open(f"{batch.state}/status/{job}.jsonl").read().count('"started"') for job in range(40))
    print(f"slurm_batch: node failure: 40 jobs done in {time.monotonic() - begin:.0f} s, {starts} starts, "
          f"{len(batch.lines('interrupted'))} lost and submitted again, every output as on the local engine", flush=True)


def killed_batch(program, folder):
    batch = Batch(program, folder, 12, 20)
    running = batch.start()
    batch.wait_for(3, running)
    running.kill()
    running.communicate()
    text = batch.finish(batch.start("--resume"))
    assert "is still running" in text, text
    batch.check()
    arrays = [line for line in trees.journal(batch.state) if line.get("state") == "submitted"]
    assert len(arrays) == 1, arrays
    print("slurm_batch: killed batch: attached to its array, 12 jobs done once", flush=True)


def interrupted_batch(program, folder):
    batch = Batch(program, folder, 12, 20)
    running = batch.start("-j", "2")
    batch.wait_for(2, running)
    running.send_signal(signal.SIGINT)
    batch.finish(running, 130)
    assert not output("squeue", "-h", "-t", "PD,R"), "the array is still there"
    done = len(batch.lines("done"))
    assert done < 12
    batch.finish(batch.start("--resume"))
    batch.check()
    print(f"slurm_batch: interrupted batch: cancelled after {done} jobs, the rest done on resume", flush=True)


def failing_job(program, folder):
    batch = Batch(program, folder, 6, 2)
    os.makedirs(folder + "/out/ac/run.rec")  # a folder where the recording should be
    text = batch.finish(batch.start("--retry", "1", "--retry-delay", "0.2"), 4)
    assert "run.rec" in text, text
    assert len(batch.lines("failed")) == 2 and len(batch.lines("done")) == 5
    os.rmdir(folder + "/out/ac/run.rec")
    batch.finish(batch.start("--resume"))
    batch.check()
    print("slurm_batch: failing job: tried twice, its five siblings once; done on resume", flush=True)


def main():
    program = os.path.join(os.path.abspath(sys.argv[1]), "scansteps")
    tests = {test.__name__: test for test in (killed_batch, interrupted_batch, failing_job, node_failure)}
    for name in sys.argv[2:] or tests:
        folder = os.path.realpath(tempfile.mkdtemp(prefix="scansteps-slurm-"))
        try:
            tests[name](program, folder)
        finally:
            shutil.rmtree(folder, ignore_errors=True)  # where a test failed, jobs may still write


main()
