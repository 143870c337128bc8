"""Report section of writers_bench.cpp; its peers meshio and VTK are measured by writers_peers.py."""
from tables import table

TITLE = "Model files"


def report(runs):
    assimp = [[name.split("assimp")[1], f"{run['triangles/s'] / 1e6:.2f}"] for name, run in runs.items() if "assimp" in name]
    return f"""
A torus of 500,000 vertices and a million triangles, written to a file in memory; processor time. STL, including its normals,
reaches {runs['stlOfBareWrite']['of_write']:.2f} of the speed of a plain `write()` of the same bytes, alternating (target: 0.6).
OpenFlight: {runs['flt']['triangles/s'] / 1e6:.1f} M triangles/s.

{table(("assimp (in the same program)", "M triangles/s"), assimp)}
meshio and VTK, called from Python, alternate with ours, best of three. Targets: 10 times the fastest peer for PLY and OBJ,
5 times for STL.
"""
