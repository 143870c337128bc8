#!/usr/bin/env python3
"""Opens models written by this program with readers that are not ours, and compares with the recording.

usage: check_models.py SCANSTEPS     SCANSTEPS: the program

Reads with meshio, assimp and OpenSceneGraph's osgconv, as far as they are installed (Debian: python3-meshio,
assimp-utils, openscenegraph); the ones that are not are named and left out. Exit code 0 when all that could be
checked is right, 77 when there was no reader at all.
"""
import importlib.util
import os
import re
import shutil
import struct
import subprocess
import sys
import tempfile

PROGRAM = os.path.abspath(sys.argv[1])
HERE = os.path.dirname(os.path.abspath(__file__))
MODELS = os.path.join(HERE, "..", "examples", "models")
COLOURED, TEXTURED, CLOUD = (os.path.join(MODELS, name + ".rec") for name in
                             ("torus_knot", "textured_knot", "sphere_points"))
checks = 0


def check(ok, text):
    global checks
    checks += 1
    if not ok:
        sys.exit(f"check-models: {text}")


def near(a, b, tolerance, text):
    check(len(a) == len(b), f"{text}: {len(a)} values instead of {len(b)}")
    worst = max((abs(x - y) for x, y in zip(a, b)), default=0)
    check(worst <= tolerance, f"{text}: off by {worst}")


class Reader:
    """Records of a recording as dictionaries; arrays as flat lists."""

    KINDS = {1: ("b", 1), 2: ("B", 1), 3: ("h", 2), 4: ("H", 2), 5: ("i", 4), 6: ("I", 4), 8: ("f", 4), 9: ("d", 8)}

    def __init__(self, data):
        self.data, self.at = data, 0

    def take(self, form):
        values = struct.unpack_from("<" + form, self.data, self.at)
        self.at += struct.calcsize("<" + form)
        return values if len(values) > 1 else values[0]

    def text(self):
        count = self.take("I") - 99
        raw = self.data[self.at:self.at + count]
        self.at += count
        return bytes((c + 10 + i) % 256 for i, c in enumerate(raw))[:-1].decode()

    def record(self):
        _, _, count = self.take("QII")
        directory = [(self.text(), self.take("I")) for _ in range(count)]
        return {name: self.value(kind) for name, kind in directory}

    def value(self, kind):
        if kind == 10:
            return self.text()
        if kind == 11:
            return self.record()
        if kind == 12:
            _, a, b, c, element = self.take("5I")
            code, size = self.KINDS[element]
            values = struct.unpack_from(f"<{a * b * c}{code}", self.data, self.at)
            self.at += a * b * c * size
            return values
        if kind == 13:
            _, count = self.take("II")
            return [self.record() for _ in range(count)]
        return self.take(self.KINDS[kind][0])


def model_of(path):
    with open(path, "rb") as file:
        reader = Reader(file.read())
    while reader.at < len(reader.data):
        record = reader.record()
        if "tria" in record or "pns" in record:
            return record
    sys.exit(f"check-models: no model in {path}")


def export(recording, name):
    run([PROGRAM, "run", "--quiet", "--frames", "2", f'readd load.name={recording} ! cply export.name={name} '
         'export_obj.image_width=192 ! clast'])
    check(os.path.exists(name), f"{name} was not written")


def run(command):
    result = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False)
    if result.returncode != 0:
        sys.exit(f"check-models: {' '.join(command)}\n{result.stdout}")
    return result.stdout


def bounds(vertices):
    return [f(vertices[axis::3]) for axis in range(3) for f in (min, max)]


def meshio_copy(name):
    """meshio knows the list of a face under the name "vertex_indices" only, not under the usual "vertex_index"."""
    if not name.endswith(".ply"):
        return name
    with open(name, encoding="ascii") as file:
        text = file.read()
    with open("copy.ply", "w", encoding="ascii") as file:
        file.write(text.replace("vertex_index\n", "vertex_indices\n", 1))
    return "copy.ply"


def check_meshio(tria, pns):
    import meshio
    import numpy
    vertices = numpy.reshape(tria["Vertices"], (-1, 3))
    triangles = numpy.reshape(tria["Indices"], (-1, 3))
    for name, tolerance in (("a.ply", 1.01e-4), ("a.obj", 5e-6), ("a.stl", 0)):
        mesh = meshio.read(meshio_copy(name))
        found = numpy.concatenate([c.data for c in mesh.cells if c.type == "triangle"])
        check(len(found) == len(triangles), f"meshio: {name} has {len(found)} triangles")
        corners = mesh.points[found].reshape(-1)
        if name == "a.obj":  # triangles are grouped by page: compare as sets of corners
            corners = numpy.array(sorted(map(tuple, mesh.points[found].reshape(-1, 9)))).reshape(-1)
            wanted = numpy.array(sorted(map(tuple, vertices[triangles].reshape(-1, 9)))).reshape(-1)
            check(len(mesh.points) == len(vertices), f"meshio: {name} has {len(mesh.points)} vertices")
            near(sorted(mesh.points.reshape(-1)), sorted(vertices.reshape(-1)), tolerance, f"meshio: {name}")
        else:
            wanted = vertices[triangles].reshape(-1)
            near(corners, wanted, tolerance, f"meshio: {name}")
    ply = meshio.read(meshio_copy("a.ply"))
    for i, channel in enumerate(("red", "green", "blue")):
        near(ply.cell_data[channel][0], [int(c) for c in tria["Tricolors"][i::3]], 0, f"meshio: a.ply {channel}")
    cloud = meshio.read("cloud.ply")
    near(cloud.points.reshape(-1), pns["Points"], 1.01e-4, "meshio: cloud.ply")
    near(cloud.point_data["green"], [int(c) for c in pns["Colors"][1::3]], 0, "meshio: cloud.ply green")


def check_assimp(tria, pns):
    count = len(tria["Indices"]) // 3
    low_high = bounds(tria["Vertices"])
    for name, tolerance in (("a.ply", 2e-4), ("a.obj", 1e-5), ("a.stl", 1e-6)):
        text = run(["assimp", "info", name])
        faces = sum(int(n) for n in re.findall(r"^Faces:\s+(\d+)", text, re.M))
        check(faces == count, f"assimp: {name} has {faces} faces, not {count}")
        low = re.search(r"Minimum point\s+\(([^)]*)\)", text).group(1).split()
        high = re.search(r"Maximum point\s+\(([^)]*)\)", text).group(1).split()
        near([float(v) for pair in zip(low, high) for v in pair], low_high, tolerance, f"assimp: bounds of {name}")
        if name == "a.obj":
            check("'a.jpg'" in text and "'a_1.jpg'" in text, "assimp: a.obj has not both of its textures")


def osg_arrays(text, name):
    """All vectors of the arrays called `name` in a text scene, as one list for each array."""
    for body in re.findall(name + r" TRUE \{.*?vector \d+ \{(.*?)\}", text, re.S):
        yield [float(v) for v in body.split()]


def check_osg_colours(text, tria):
    """Triangles with their colours, in any order: the reader joins neighbours of one colour."""
    vertices, colours = tria["Vertices"], tria["Tricolors"]
    wanted = sorted([*(int(c) for c in colours[3 * k:3 * k + 3]),
                     *(round(v, 3) for i in tria["Indices"][3 * k:3 * k + 3] for v in vertices[3 * i:3 * i + 3])]
                    for k in range(len(tria["Indices"]) // 3))
    found = []
    for part in text.split("osg::Geometry {")[1:]:
        colour = [round(c * 255) for c in next(osg_arrays(part, "ColorArray"))]
        check(len(colour) == 4, "osgconv: plain.flt has faces of several colours")
        points = [round(v, 3) for v in next(osg_arrays(part, "VertexArray"))]
        found += [[*colour[:3], *points[i:i + 9]] for i in range(0, len(points), 9)]
    check(len(found) == len(wanted), f"osgconv: plain.flt has {len(found)} triangles")
    for a, b in zip(sorted(found), wanted):
        near(a, b, 0.0021, "osgconv: triangles and colours of plain.flt")


def check_osg(tria, pns):
    for name in ("plain.flt", "a.flt", "a.obj", "a.stl"):
        output = run(["osgconv", "-O", "noRotation", name, "scene.osgt"])  # OBJ would be turned to z upward
        check("error" not in output.lower() and "warn" not in output.lower(), f"osgconv: {name}: {output}")
        with open("scene.osgt", encoding="utf-8") as file:
            text = file.read()
        triangles = sum(int(n) for n in re.findall(r"Mode TRIANGLES\s+Count (\d+)", text)) // 3
        triangles += sum(int(n) // 3 for n in re.findall(r"osg::DrawElementsU\w+ \{[^{}]*?Mode TRIANGLES\s+vector (\d+)", text))
        if name.endswith(".flt"):
            check(triangles == len(tria["Indices"]) // 3, f"osgconv: {name} has {triangles} triangles")
        points = [v for array in osg_arrays(text, "VertexArray") for v in array]
        near(bounds(points), bounds(tria["Vertices"]), 1e-4, f"osgconv: bounds of {name}")
        if name == "plain.flt":
            check_osg_colours(text, tria)
        if name == "a.flt":
            check("a.jpg" in text and "a_1.jpg" in text, "osgconv: a.flt has not both of its textures")


def main():
    tria, pns = model_of(COLOURED)["tria"], model_of(CLOUD)["pns"]
    check(model_of(TEXTURED)["tria"]["Vertices"] == tria["Vertices"], "the example meshes differ")
    readers = {"meshio": importlib.util.find_spec("meshio"), "assimp": shutil.which("assimp"),
               "osgconv": shutil.which("osgconv")}
    with tempfile.TemporaryDirectory() as folder:
        os.chdir(folder)
        for recording, name in ((COLOURED, "a.ply"), (COLOURED, "a.stl"), (COLOURED, "plain.flt"),
                                (TEXTURED, "a.obj"), (TEXTURED, "a.flt"), (CLOUD, "cloud.ply")):
            export(recording, name)
        for name, found in readers.items():
            if not found:
                print(f"check-models: {name} is not installed, left out")
                continue
            {"meshio": check_meshio, "assimp": check_assimp, "osgconv": check_osg}[name](tria, pns)
            print(f"check-models: {name} reads back what was written")
        os.chdir("/")
    print(f"check-models: {checks} checks")
    sys.exit(0 if any(readers.values()) else 77)


main()
