#!/usr/bin/env python3
"""Fails every allocation, thread start and system call of real runs in turn, and checks how the program reacts.

usage: run_faults.py BIN [--seconds S] [--jobs N] [--only PIPELINE[:CALL]] [--list FILE]

BIN is a build tree's bin. --seconds: an evenly spread sample within that time. Each pipeline of PIPELINES first runs
clean; its calls are counted by name, then each is failed once with an errno of its kind. System calls fail four times: into an
empty folder and over the files of an earlier run, with and without --strict. What must hold is in `faults_of`.
"""
import argparse
import collections
import concurrent.futures
import contextlib
import errno
import itertools
import os
import random
import re
import shutil
import signal
import socket
import struct
import subprocess
import sys
import tempfile
import threading
import time

HANG = 30  # seconds; a clean run takes a tenth of one
OLD = b"left by an earlier run\n"
EXAMPLES = os.path.join(os.path.dirname(os.path.abspath(__file__)), "../../examples")
PICTURES = "cjread load.name=in/img0000.jpg ! cyuv ! "
KNOT = "readd load.name=in/knot.rec ! cply name=out/knot"
# Subcommand and arguments. What is written goes to out/; an argument {port} is that of a listening peer.
PIPELINES = {
    "edges": ("run", PICTURES + "ccanny ! cjwrite name=out/edge0000.jpg ! clast"),
    "report": ("run", PICTURES + "clast", "--report", "out/report.json"),
    "record": ("run", PICTURES + "filesaver name=out/run.rec ! clast"),
    "replay": ("run", "read load.name=in/run.rec ! crgb ! cjwrite name=out/replay0000.ppm ! clast", "--frames", "9"),
    "decoder": ("run", "cjreadf load.name=in/img0000.jpg ! ccanny2a ! cstrip ! filesaver name=out/lines.rec"),
    "ply": ("run", KNOT + ".ply"),
    "obj": ("run", KNOT + ".obj image_width=192"),
    "stl": ("run", KNOT + ".stl"),
    "flt": ("run", KNOT + ".flt image_width=192"),
    "dump": ("run", PICTURES + "cdump row=7 name=out/rows.raw", "--set", "numberOfViews=1"),
    "sender": ("run", PICTURES + "sender host=127.0.0.1 port={port} ! clast"),
    "corners": ("run", PICTURES + "ccorner5 ! cneig ! filesaver name=out/features.rec", "--set", "cpu_base=0"),
    "camera": ("run", "ccap1 dev_name=test:moving@max count_max=3 dataX=64 dataY=48 ! filesaver name=out/camera.rec"),
    "buffer": ("run", PICTURES + "cbuff Size=2 ! filesaver name=out/burst.rec ! clast"),
    "views": ("run", PICTURES + "c2rege5 ! csegment ! filesaver name=out/views.rec ! clast"),
    "imread": ("run", "imread name='in/img*.jpg' ! c2rege5 ! csegment ! filesaver name=out/views.rec ! clast"),
    "imwrite": ("run", "imread name='in/img*.jpg' ! cyuv ! imwrite name=out/copy0000.png ! clast"),
    "behind": ("run", PICTURES + "filesaver name=out/run.rec write.behind=1 ! crgb ! cjwrite name=out/copy0000.ppm write.behind=1"),
    "inspect": ("inspect", "in/run.rec", "--json", "--data", "--frames", "out"),
    "recover": ("inspect", "in/run.rec", "--recover", "out/rescued.rec"),
    "receive": ("receive", "--port", "0", "--once", "--out", "out/received.rec"),
    "check": ("check", PICTURES + "ccanny ! cjwrite name=out/edge0000.jpg"),
    "steps": ("steps", "ccanny", "--json"),
}
NEVER_OLD = {"receive", "check", "steps"}  # an existing recording is refused; nothing is written
ERRNO = collections.defaultdict(lambda: errno.EIO, {
    "alloc": errno.ENOMEM, "mmap": errno.ENOMEM, "thread": errno.EAGAIN, "poll": errno.ENOMEM, "ppoll": errno.ENOMEM,
    "openat": errno.EMFILE, "socket": errno.EMFILE, "accept": errno.EMFILE, "accept4": errno.EMFILE, "pipe2": errno.EMFILE,
    "eventfd2": errno.EMFILE, "connect": errno.ECONNREFUSED, "write": errno.ENOSPC, "writev": errno.ENOSPC,
    "sendto": errno.ECONNRESET, "sendmsg": errno.ECONNRESET, "recvfrom": errno.ECONNRESET, "recvmsg": errno.ECONNRESET})
TRANSFERS = {"read", "pread64", "readv", "write", "pwrite64", "writev", "sendto", "recvfrom"}
# Not fcntl: only waits for locks of ranges are, which nothing here asks for.
INTERRUPTIBLE = TRANSFERS | {"open", "openat", "close", "fsync", "fdatasync", "ftruncate", "flock", "connect", "accept", "accept4",
                             "poll", "ppoll", "select", "pselect6", "sendmsg", "recvmsg"}
LASTING = {"alloc", "mmap", "thread", "openat", "socket", "read", "readv", "write", "writev", "sendmsg"}
HARMLESS = {"short", str(errno.EINTR)}  # must not change anything

# What a run prints and writes about times; "workerSeconds" is there when threads had something to do.
WORKED = re.compile(rb',\s*"workerSeconds": [\d.e+-]+')
TABLE = re.compile(rb"^(?:scansteps: \d+ frames in .*/s\)|step  kind .*share|[ \d]{4}  .*(?:%|-))\n", re.MULTILINE)
TIMES = re.compile(rb' *[-+.\de]+ sec\b|(?:econds?|share)": [\d.e+-]+|time \d+ms')
Result = collections.namedtuple("Result", "code out err files hung call")


class Peer:
    """The other end of a connection: takes what a sender sends, or sends a recording to a receiver."""

    def __init__(self, recording):
        self.recording, self.received = recording, b""
        self.listener = socket.create_server(("127.0.0.1", 0))
        self.port = self.listener.getsockname()[1]

    def take(self):
        part = b""
        while part != b"end":
            with self.listener.accept()[0] as client, contextlib.suppress(ConnectionError):
                while (part := client.recv(1 << 16)) and part != b"end":
                    self.received += part

    def give(self, process, err):
        for line in process.stderr:
            err.append(line)
            if found := re.search(rb"listening on .*:(\d+)", line):
                threading.Thread(target=self.send, args=(int(found[1]), process), daemon=True).start()

    def send(self, port, process):
        while process.poll() is None:  # again, when the receiver has lost the connection to a fault
            with contextlib.suppress(OSError), socket.create_connection(("127.0.0.1", port), timeout=5) as client:
                client.sendall(self.recording)
                client.shutdown(socket.SHUT_WR)
                client.recv(1)

    def close(self):
        with socket.create_connection(("127.0.0.1", self.port)) as client:
            client.sendall(b"end")


class Bench:
    """Runs pipelines in folders of their own."""

    def __init__(self, binaries, folder):
        self.program, self.library = os.path.join(binaries, "scansteps"), os.path.join(binaries, "libfaults.so")
        self.folder, self.local = folder, threading.local()
        self.inputs = os.path.join(folder, "in")
        os.mkdir(self.inputs)
        shutil.copy(os.path.join(EXAMPLES, "models/textured_knot.rec"), os.path.join(self.inputs, "knot.rec"))
        levels = random.Random(1).choices(range(256), k=16 * 12)
        for number in range(3):  # the same pattern of blocks, shifted
            grey = bytes(levels[(y // 4) * 16 + (x + 2 * number) // 4 % 16] for y in range(48) for x in range(64) for _ in "rgb")
            with open(os.path.join(self.inputs, f"img000{number}.ppm"), "wb") as file:
                file.write(b"P6\n64 48\n255\n" + grey)
        for chain in ("cjread load.name=in/img0000.ppm ! cjwrite name=in/img0000.jpg",
                      "cjread load.name=in/img0000.jpg ! cyuv ! filesaver name=in/run.rec ! clast"):
            subprocess.run([self.program, "run", "--quiet", chain], cwd=folder, check=True, stdout=subprocess.DEVNULL)
        with open(os.path.join(self.inputs, "run.rec"), "rb") as file:
            self.recording = file.read()

    def place(self):
        if not hasattr(self.local, "place"):
            self.local.place = tempfile.mkdtemp(dir=self.folder)
            os.symlink(self.inputs, os.path.join(self.local.place, "in"))
        return self.local.place

    def run(self, name, call="", old=(), strict=False):
        place = self.place()
        out, log = os.path.join(place, "out"), os.path.join(place, "log")
        shutil.rmtree(out, ignore_errors=True)
        os.mkdir(out)
        for file in old:
            with open(os.path.join(out, file), "wb") as stream:
                stream.write(OLD)
        with contextlib.suppress(FileNotFoundError):
            os.unlink(log)
        peer = Peer(self.recording)
        arguments = [word.replace("{port}", str(peer.port)) for word in PIPELINES[name]]
        if arguments[0] == "run":
            arguments += ["--strict"] * strict
        environment = dict(os.environ, LD_PRELOAD=self.library, FAULTS_LOG=log, FAULTS_CALL=call, LC_ALL="C")
        process = subprocess.Popen([self.program, *arguments], cwd=place, env=environment, stdin=subprocess.DEVNULL,
                                   stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        err = []
        threads = [threading.Thread(target=peer.give, args=(process, err)), threading.Thread(target=peer.take)]
        timer = threading.Timer(HANG, process.kill)
        timer.start()
        for thread in threads:
            thread.start()
        stdout = process.stdout.read()
        threads[0].join()
        code = process.wait()
        hung = not timer.is_alive()
        timer.cancel()
        peer.close()
        threads[1].join()
        peer.listener.close()
        process.stdout.close(), process.stderr.close()
        files = {}
        for root, _, names in os.walk(out):
            for file in names:
                with open(os.path.join(root, file), "rb") as stream:
                    data = stream.read()
                if file.endswith(".json"):
                    data = TIMES.sub(b"T", WORKED.sub(b"", data))
                files[os.path.relpath(stream.name, out)] = data
        if name == "sender":
            files["sent.rec"] = peer.received.replace(struct.pack("<i", peer.port), struct.pack("<i", 0))
        port = str(peer.port if name == "sender" else "no port").encode()
        said = TABLE.sub(b"", b"".join(err)).replace(port, b"PORT")
        said = re.sub(rb"127\.0\.0\.1:\d+", b"PEER", said).decode(errors="replace")
        made = open(log).read() if os.path.exists(log) else ""
        return Result(code, TIMES.sub(b"T", stdout).replace(port, b"PORT"), said, files, hung, made)


def records(data):
    """The whole records of a recording, and whether bytes are left."""
    found, at = [], 0
    while at + 8 <= len(data):
        size = struct.unpack_from("<Q", data, at)[0]
        if size < 16 or at + size > len(data):
            break
        found.append(data[at:at + size])
        at += size
    return found, at < len(data)


def differs(name, file, data, whole):
    """What is wrong with a file that is not as in the clean run, apart from being older."""
    if file.endswith(".json"):
        if not data.endswith(b"}\n"):
            return "not a whole report"
    elif file.endswith(".rec"):
        (got, cut), wanted = records(data), records(whole)[0]
        if got and got[-1] == wanted[-1]:
            got.pop()
        elif cut and not whole.startswith(data):
            return "ends in bytes that are of no record"
        rest = iter(wanted)  # a frame may be missing where a later step goes on after the error
        if len(got) > 1 and not all(record in rest for record in got) and name != "corners":  # of pairs one may be alone
            return "records that the clean run has not"
    elif file.endswith(".raw"):
        if not whole.startswith(data):
            return "rows that the clean run has not"
    else:
        return "partial file under its final name"
    return None


def same(clean, result):
    if clean.files != result.files:
        return False
    lines = iter(result.out.splitlines())  # a step may say more than before: that it tries again, say
    return result.call.startswith("lib.") or all(line in lines for line in clean.out.splitlines())


def faults_of(name, how, clean, result, old, strict):
    """What the run did that it must not do."""
    code, err = result.code, result.err
    failed = result.call.split("\n", 1)[0].split()
    speechless = failed[:1] and failed[0] in ("write", "writev") and failed[1] == "2"
    if result.hung:  # a receiver that nobody can find or that can serve nobody waits on
        return [] if name == "receive" and ("listening on" not in err or how.endswith("+")) else ["hang"]
    if code < 0 or code in (1, 99, 134, 139) or "terminate called" in err or "libgomp: " in err:
        return [f"crash, code {code}"]
    found = []
    if code not in (0, 2, 4, 5):
        found.append(f"exit code {code}")
    if how in HARMLESS:
        if code != 0 or not same(clean, result) or result.err != clean.err:
            found.append(f"{'EINTR' if how != 'short' else 'a short transfer'} changed the run, exit code {code}")
        return found
    told = err != clean.err if name == "receive" else "scansteps: error: " in err
    if code != 0 and not told and not speechless:
        found.append("no error line")
    if code == 0 and not same(clean, result):
        if strict or PIPELINES[name][0] != "run":
            found.append("different output and exit code 0")
        elif not speechless and err == clean.err:
            found.append("different output without a message")
    for file, data in result.files.items():
        if file not in clean.files:
            found.append(f"left {file}")
        elif data != clean.files[file] and not (file in old and data == OLD):
            if wrong := differs(name, file, data, clean.files[file]):
                found.append(f"{file}: {wrong}")
    if name in ("obj", "flt") and "pictures written" not in err:
        new = {file for file, data in result.files.items() if data != OLD}
        if new and new != set(clean.files):
            found.append(f"only {', '.join(sorted(new))} replaced")
    for file in clean.files:
        if file in old and file not in result.files:
            found.append(f"{file} removed")
        whole_run = PIPELINES[name][0] == "run" and not how.endswith("+") and not re.search("filesaver|sender|flush", err)
        if code in (4, 5) and file.endswith(".rec") and whole_run:
            got, wanted = records(result.files.get(file, b""))[0], records(clean.files[file])[0]
            if got and got[-1] != wanted[-1] and result.files[file] != OLD:
                found.append(f"{file} has no end record")
        if reached := re.search(r"error: .*frame (\d+)", err):
            wanted = int(reached[1]) - (3 if name in ("buffer", "corners") else 1)
            # A step that writes behind meets a failed write with one of the next frames: those that may wait.
            if re.search(r"error: .*\((?:filesaver|cdump)\), frame \d+: write error", err):
                wanted -= 1 if name == "behind" else 4
            data = result.files.get(file, b"")
            rows = len(data) * 3 // len(clean.files[file]) if file.endswith(".raw") else max(len(records(data)[0]) - 1, 0)
            if file.endswith((".rec", ".raw")) and name not in ("recover",) and rows < wanted:
                found.append(f"{file} holds {rows} of the frames before the error in frame {reached[1]}")
    return found


def points_of(calls, has_old, is_run):
    """Every fault: call as NAME:NUMBER:HOW, whether older files lie there, whether it is --strict, and its weight."""
    calls_by_name = collections.Counter(line.split()[0] for line in calls.splitlines())
    for name, count in calls_by_name.items():
        plain = name.removeprefix("lib.")
        hows = [str(ERRNO[plain])]
        if plain == name:
            hows += [f"{ERRNO[plain]}+"] * (name in LASTING)
            hows += ["short"] * (name in TRANSFERS) + [str(errno.EINTR)] * (name in INTERRUPTIBLE)
        for number, how in itertools.product(range(1, count + 1), hows):
            variant = number % 2 == 1 and has_old, number // 2 % 2 == 1 and is_run
            both = itertools.product({False, has_old}, {False, is_run})
            for old, strict in [variant] if plain == "alloc" else both:
                # Weighs more at the front: a sample begins with system calls.
                yield f"{name}:{number}:{how}", old, strict, 1 if plain == "alloc" or (old, strict) != variant else 0.1


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("binaries")
    parser.add_argument("--seconds", type=float, default=0)
    parser.add_argument("--jobs", type=int, default=2)
    parser.add_argument("--only", default="")
    parser.add_argument("--list", help="findings with backtraces go here")
    options = parser.parse_args()
    only, _, only_call = options.only.partition(":")
    started = time.monotonic()
    counts, findings = collections.Counter(), collections.defaultdict(list)
    with tempfile.TemporaryDirectory(prefix="faults") as folder, concurrent.futures.ThreadPoolExecutor(options.jobs) as pool:
        bench = Bench(os.path.abspath(options.binaries), folder)
        clean, points = {}, []
        for name in PIPELINES if not only else only.split(","):
            first = bench.run(name)
            old = () if name in NEVER_OLD else [file for file in first.files if file != "sent.rec"]
            clean[name] = {False: (first, ()), True: (bench.run(name, old=old), old)}
            for result, _ in clean[name].values():
                if result.code != 0 or not same(first, result):
                    sys.exit(f"{name}: the clean run does not work: {result.code} {result.err}")
            own = [(name, *point) for point in points_of(first.call, bool(old), PIPELINES[name][0] == "run")
                   if re.match(only_call, point[0])]
            points += own
            print(f"{name}: {len(own)} faults", flush=True)
        chance = random.Random(1)  # in this order, a sample of any length is spread evenly
        points.sort(key=lambda point: chance.random() * point[-1])

        def check(point):
            if options.seconds and time.monotonic() - started > options.seconds:
                return None
            name, call, is_old, strict, _ = point
            reference, old = clean[name][is_old]
            result = bench.run(name, call, old, strict)
            return [] if not result.call else faults_of(name, call.split(":")[2], reference, result, old, strict), result

        for (name, call, *_), answer in zip(points, pool.map(check, points)):
            if answer is None:
                continue
            counts["runs"] += 1
            counts["reached"] += bool(answer[1].call)
            for text in answer[0]:
                findings[name, re.sub(r"\d+(?=:)", "N", call, count=1), text].append((call, answer[1]))
    for (name, kind, text), cases in sorted(findings.items()):
        print(f"{name}: {text}: {', '.join(call for call, _ in cases[:6])}{' ...' if len(cases) > 6 else ''} ({len(cases)})")
    if options.list:
        with open(options.list, "w") as file:
            for (name, _, text), cases in sorted(findings.items()):
                for call, result in cases:
                    file.write(f"--- {name} {call}: {text}\ncode {result.code}\n{result.err}{result.call}\n")
    bad = sum(len(cases) for cases in findings.values())
    print(f"faults: {counts['runs']} of {len(points)} runs, {counts['reached']} with a fault, {bad} findings, "
          f"{time.monotonic() - started:.0f} s")
    return 1 if bad or not counts["reached"] else 0


if __name__ == "__main__":
    sys.exit(main())
