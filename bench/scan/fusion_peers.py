#!/usr/bin/env python3
"""Fuses recorded views with sfuse and with Open3D's TSDF integration, in turns, and compares time and error.

usage: fusion_peers.py BIN SERIES VIEWS.rec [VOXEL]

BIN: folder of the built programs. SERIES: what scansteps-simulate --meshes wrote, with a camera without
distortion and a turntable. VIEWS.rec: the recording of its views after smesh. Both get the same points, poses and
truncation, one thread, and both times are those of integration and extraction, the best of three. Open3D gets the
points as depth images, once with (grey) pictures, whose colours sfuse averages too, and once without. Debian packages: python3-open3d.
"""
import json
import os
import re
import struct
import subprocess
import sys
import tempfile

os.environ["OMP_NUM_THREADS"] = "1"
import time

import numpy as np
import open3d as o3d

FORMATS = {1: "b", 2: "B", 3: "h", 4: "H", 5: "i", 6: "I", 8: "f", 9: "d"}


class Records:
    """The records of a recording, arrays as numpy arrays (rows x elements)."""

    def __init__(self, path):
        self.file = open(path, "rb")

    def __iter__(self):
        while self.file.peek(1):
            yield self.struct()

    def numbers(self, letters):
        return struct.unpack("<" + letters, self.file.read(struct.calcsize("<" + letters)))

    def text(self):
        coded = self.file.read(self.numbers("I")[0] - 99)
        return bytes((c + 10 + i) % 256 for i, c in enumerate(coded))[:-1].decode()

    def struct(self):
        _size, _kind, count = self.numbers("QII")
        directory = [(self.text(), *self.numbers("I")) for _ in range(count)]
        return {name: self.value(kind) for name, kind in directory}

    def value(self, kind):
        if kind in FORMATS:
            return self.numbers(FORMATS[kind])[0]
        if kind == 10:
            return self.text()
        if kind == 11:
            return self.struct()
        if kind == 12:
            _kind, width, height, planes, element = self.numbers("5I")
            letter = FORMATS[element]
            data = self.file.read(width * height * planes * struct.calcsize("<" + letter))
            return np.frombuffer(data, "<" + letter).reshape(height * planes, width)
        if kind == 13:
            return [self.struct() for _ in range(self.numbers("2I")[1])]
        return None


def depth_images(views):
    """z in mm of every pixel that is a vertex of the view's mesh, 0 elsewhere."""
    for record in Records(views):
        if "tria" not in record:
            continue
        height, width = record["index"].shape
        depth = np.zeros((height, width), np.float32)
        column, row = record["tria"]["Pixels"].astype(int).T
        depth[row, column] = record["tria"]["Vertices"][:, 2]
        yield depth


def turned(calibration, steps):
    """The motion of a turntable after some steps, as a matrix."""
    stage = calibration["stage"]
    angle = np.radians(stage["step"] * steps)
    x, y, z = stage["axis"]
    cross = np.array([[0, -z, y], [z, 0, -x], [-y, x, 0]])
    matrix = np.eye(4)
    matrix[:3, :3] = np.eye(3) + np.sin(angle) * cross + (1 - np.cos(angle)) * cross @ cross
    matrix[:3, 3] = stage["point"] - matrix[:3, :3] @ stage["point"]
    return matrix


def run_peer(depths, calibration, voxel, truncation, has_colours):
    camera = calibration["camera"]
    assert not any(camera["distortion"]), "depth images have no distortion"
    height, width = depths[0].shape
    intrinsic = o3d.camera.PinholeCameraIntrinsic(width, height, *camera["focal"], *camera["centre"])
    types = o3d.pipelines.integration.TSDFVolumeColorType
    picture = o3d.geometry.Image(np.full((height, width, 3), 128, np.uint8) if has_colours else np.zeros((height, width), np.float32))
    images = [o3d.geometry.RGBDImage.create_from_color_and_depth(
        picture, o3d.geometry.Image(depth), depth_scale=1.0, depth_trunc=1e6, convert_rgb_to_intensity=not has_colours) for depth in depths]
    poses = [turned(calibration, n) for n in range(len(depths))]
    start = time.perf_counter()
    volume = o3d.pipelines.integration.ScalableTSDFVolume(voxel, truncation, types.RGB8 if has_colours else types.NoColor)
    for image, pose in zip(images, poses):
        volume.integrate(image, intrinsic, pose)
    mesh = volume.extract_triangle_mesh()
    return time.perf_counter() - start, mesh


def run_ours(tools, calibration, views, voxel, output):
    answer = subprocess.run(["taskset", "-c", "0", f"{tools}/scansteps", "run", "--quiet",
                             f"read load.name={views} ! sfuse sfuse.voxel={voxel} sfuse.calibration={calibration} ! filesaver save.name={output}"],
                            check=True, capture_output=True, text=True).stdout
    return float(re.search(r"Sfuse time =\s*([\d.]+)", answer).group(1))


def main():
    tools, series, views = sys.argv[1:4]
    voxel = float(sys.argv[4]) if len(sys.argv) > 4 else 0.25
    name = f"{series}/calibration.json"
    with open(name) as file:
        calibration = json.load(file)
    depths = list(depth_images(views))
    with tempfile.TemporaryDirectory() as folder:
        ours, bare, peers = [], [], []
        for _ in range(3):
            ours.append(run_ours(tools, name, views, voxel, f"{folder}/ours.rec"))
            peers.append(run_peer(depths, calibration, voxel, 4 * voxel, True)[0])
            seconds, mesh = run_peer(depths, calibration, voxel, 4 * voxel, False)
            bare.append(seconds)
        o3d.io.write_triangle_mesh(f"{folder}/peer.ply", mesh)
        print(f"{len(depths)} views, {sum(int((d > 0).sum()) for d in depths)} points, voxels of {voxel} mm\n")
        print("|  | sfuse | Open3D |\n|---|---|---|")
        for label, seconds in (("seconds, with colours", peers), ("seconds, the peer without colours", bare)):
            print(f"| {label} | {min(ours):.2f} | {min(seconds):.2f} ({min(seconds) / min(ours):.1f} times) |")
        results = [json.loads(subprocess.run([f"{tools}/scansteps-deviation", series, f"{folder}/{model}", "--mesh", "--json"],
                                             check=True, capture_output=True, text=True).stdout)
                   for model in ("ours.rec", "peer.ply")]
        for label, key in (("RMS distance to the true surface, mm", "rms"), ("95 % within, mm", "percentile95"),
                           ("largest, mm", "largest")):
            print(f"| {label} | {results[0]['measured'][key]:.4f} | {results[1]['measured'][key]:.4f} |")
        print(f"| vertices | {results[0]['measured']['points']} | {results[1]['measured']['points']} |")


main()
