"""Sends a run from one network namespace to another, over a link that loses and delays packets.

usage: lossy_link.py PROGRAM SOURCE_DIR FOLDER

The link is a pair of tun devices; this process carries the packets between them. Ends with 77 and a word
where the machine does not allow it.
"""

import ctypes
import fcntl
import heapq
import os
import random
import select
import struct
import subprocess
import sys
import threading
import time

LOSS, DELAY = 0.02, 0.003  # each way
program, source, folder = sys.argv[1:]
names = [f"scansteps-{os.getpid()}-{end}" for end in "ab"]


def skip(word):
    print("skipped:", word)
    sys.exit(77)


def ip(*arguments):
    subprocess.run(["ip", *arguments], check=True, capture_output=True)


def enter(path):
    namespace = os.open(path, os.O_RDONLY)
    if ctypes.CDLL(None, use_errno=True).setns(namespace, 0x40000000) != 0:
        raise OSError(ctypes.get_errno(), "setns")
    os.close(namespace)


def tun(namespace, address):
    home = "/proc/self/ns/net"
    back = os.open(home, os.O_RDONLY)
    try:
        enter(f"/run/netns/{namespace}")
        device = os.open("/dev/net/tun", os.O_RDWR | os.O_NONBLOCK)
        fcntl.ioctl(device, 0x400454CA, struct.pack("16sH", b"wire", 0x1001))  # TUNSETIFF: tun, no header
    finally:
        enter(f"/proc/self/fd/{back}")
        os.close(back)
    ip("-n", namespace, "addr", "add", f"{address}/24", "dev", "wire")
    ip("-n", namespace, "link", "set", "wire", "up")
    ip("-n", namespace, "link", "set", "lo", "up")
    return device


def carry(devices, stop, counts):
    lossy = random.Random(1)
    waiting = []  # (time, number, to, packet)
    number = 0
    while not stop.is_set():
        now = time.monotonic()
        while waiting and waiting[0][0] <= now:
            _, _, to, packet = heapq.heappop(waiting)
            os.write(devices[to], packet)
        timeout = min(0.1, waiting[0][0] - now) if waiting else 0.1
        for ready in select.select(devices, [], [], max(timeout, 0))[0]:
            packet = os.read(ready, 65536)
            counts[0] += 1
            if lossy.random() < LOSS:
                counts[1] += 1
                continue
            number += 1
            heapq.heappush(waiting, (time.monotonic() + DELAY, number, 1 - devices.index(ready), packet))


def main():
    try:
        for name in names:
            ip("netns", "add", name)
        devices = [tun(name, f"10.77.0.{i + 1}") for i, name in enumerate(names)]
    except (OSError, subprocess.CalledProcessError) as error:
        skip(f"no network namespaces with tun devices here ({error})")
    stop, counts = threading.Event(), [0, 0]
    relay = threading.Thread(target=carry, args=(devices, stop, counts))
    relay.start()
    inside = [["ip", "netns", "exec", name, program] for name in names]
    try:
        receiver = subprocess.Popen(
            inside[1] + ["receive", "--port", "7000", "--bind", "10.77.0.2", "--once", "--out", f"{folder}/received.rec"],
            stderr=subprocess.PIPE, text=True)
        receiver.stderr.readline()  # listening
        sender = subprocess.run(
            inside[0] + ["run", f"cjread load.name={source}/examples/images/img0000.jpg load.count=4 ! cyuv ! "
                         f"filesaver name={folder}/sent.rec ! sender host=10.77.0.2 port=7000", "--quiet"], timeout=120)
        code = receiver.wait(timeout=60)
        print(receiver.stderr.read(), f"sender {sender.returncode}, receiver {code}; {counts[0]} packets, {counts[1]} lost")
        sys.exit(0 if sender.returncode == 0 and code == 0 and counts[1] > 0 else 1)
    finally:
        stop.set()
        relay.join()


try:
    main()
except FileNotFoundError as error:
    skip(error)
finally:
    for name in names:
        subprocess.run(["ip", "netns", "del", name], capture_output=True)
