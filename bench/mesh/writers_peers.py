#!/usr/bin/env python3
"""Writes the mesh of mesh_writers_bench with meshio and VTK, and prints the triangles per second of each.

usage: writers_peers.py [PROGRAM]     PROGRAM: path of mesh_writers_bench

With PROGRAM, its writers alternate with these, and the last lines give its speed as a multiple of the fastest
peer's. Debian packages: python3-meshio, python3-vtk9, python3-numpy. The time is the processor time of the
writing call only, best of three, to a file in memory.
"""
import json
import os
import subprocess
import sys
import time

import numpy as np

COLUMNS, ROWS = 1000, 500
FOLDER = "/dev/shm" if os.path.isdir("/dev/shm") else "."


def torus():
    y, x = np.mgrid[0:ROWS, 0:COLUMNS]
    u, v = 2 * np.pi * x / COLUMNS, 2 * np.pi * y / ROWS
    r = 120 + 40.3 * np.cos(v)
    points = np.stack([r * np.cos(u), r * np.sin(u), 40.3 * np.sin(v)], -1).reshape(-1, 3).astype(np.float32)
    right, down = (x + 1) % COLUMNS, (y + 1) % ROWS
    a, b, c, d = y * COLUMNS + x, y * COLUMNS + right, down * COLUMNS + x, down * COLUMNS + right
    triangles = np.stack([a, b, c, b, d, c], -1).reshape(-1, 3)
    colours = ((x * 7 + y * 13)[..., None] + np.arange(6) * 31).reshape(-1, 3) % 256
    return points, triangles, colours.astype(np.uint8)


peer_seconds, our_seconds = {}, {}


def measure_ours(extension):
    """Updates the best processor time of our writer for one file."""
    if len(sys.argv) > 1:
        out = subprocess.run([sys.argv[1], f"--benchmark_filter=^{extension}$", "--benchmark_min_time=0.3",
                              "--benchmark_format=json"], capture_output=True, check=True).stdout
        seconds = json.loads(out)["benchmarks"][0]["cpu_time"] / 1e3
        our_seconds[extension] = min(our_seconds.get(extension, 1e9), seconds)


def measure(name, extension, write):
    measure_ours(extension)
    path = os.path.join(FOLDER, f"scansteps_peer.{extension}")
    best = 1e9
    for _ in range(3):
        if os.path.exists(path):
            os.remove(path)
        start = time.process_time()
        write(path)
        best = min(best, time.process_time() - start)
    print(f"{name:32} {best * 1e3:9.1f} ms {2 * COLUMNS * ROWS / best / 1e6:8.2f} M triangles/s "
          f"{os.path.getsize(path) / 1e6:8.1f} MB", flush=True)
    os.remove(path)
    peer_seconds[extension] = min(peer_seconds.get(extension, 1e9), best)
    measure_ours(extension)


def with_meshio(points, triangles, colours):
    import meshio
    coloured = meshio.Mesh(points, [("triangle", triangles)],
                           cell_data={n: [colours[:, i]] for i, n in enumerate(("red", "green", "blue"))})
    plain = meshio.Mesh(points, [("triangle", triangles)])
    measure("meshio PLY text", "ply", lambda p: meshio.write(p, coloured, "ply", binary=False))
    measure("meshio OBJ", "obj", lambda p: meshio.write(p, plain, "obj"))
    measure("meshio STL binary", "stl", lambda p: meshio.write(p, plain, "stl", binary=True))


def with_vtk(points, triangles, colours):
    import vtk
    from vtk.util import numpy_support as ns
    data = vtk.vtkPolyData()
    vertices = vtk.vtkPoints()
    vertices.SetData(ns.numpy_to_vtk(points, deep=1))
    cells = vtk.vtkCellArray()
    cells.SetData(3, ns.numpy_to_vtkIdTypeArray(triangles.reshape(-1).astype(np.int64), deep=1))
    data.SetPoints(vertices)
    data.SetPolys(cells)
    rgb = ns.numpy_to_vtk(colours, deep=1, array_type=vtk.VTK_UNSIGNED_CHAR)
    rgb.SetName("RGB")
    data.GetCellData().SetScalars(rgb)

    def write(class_name, setup=lambda w: None):
        def go(path):
            writer = getattr(vtk, class_name)()
            writer.SetInputData(data)
            writer.SetFileName(path)
            setup(writer)
            writer.Write()
        return go

    def ply(writer):
        writer.SetFileTypeToASCII()
        writer.SetArrayName("RGB")

    measure("VTK PLY text", "ply", write("vtkPLYWriter", ply))
    measure("VTK OBJ", "obj", write("vtkOBJWriter"))
    measure("VTK STL binary", "stl", write("vtkSTLWriter", lambda w: w.SetFileTypeToBinary()))


model = torus()
for peer in (with_meshio, with_vtk):
    try:
        peer(*model)
    except ImportError as missing:
        print(f"skipped: {missing}")
for extension, seconds in our_seconds.items():
    print(f"ours {extension:27} {seconds * 1e3:9.1f} ms {2 * COLUMNS * ROWS / seconds / 1e6:8.2f} M triangles/s "
          f"{peer_seconds[extension] / seconds:8.2f} times the fastest peer")
