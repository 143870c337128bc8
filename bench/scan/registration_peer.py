#!/usr/bin/env python3
"""Registers the views that `scansteps-registration --out DIR` wrote with Open3D, on one thread, and prints the
same JSON: each view with the one before (and the last with the first) by point-to-plane ICP from coarse to
fine, then the pose graph.

    OMP_NUM_THREADS=1 bench/scan/registration_peer.py DIR [PITCH]"""
import json
import sys
import time

import numpy as np
import open3d as o3d

reg = o3d.pipelines.registration


def main():
    folder, pitch = sys.argv[1], float(sys.argv[2]) if len(sys.argv) > 2 else 1.0
    with open(folder + "/poses.json") as file:
        poses = json.load(file)
    truth = [np.array(p["truth"]) for p in poses]
    estimate = [np.array(p["estimate"]) for p in poses]
    clouds = [o3d.io.read_point_cloud(f"{folder}/view{i}.ply") for i in range(len(poses))]
    start = time.perf_counter()
    levels = [(4 * pitch, 25.0), (2 * pitch, 6 * pitch), (pitch, 2 * pitch)]
    thinned = [[c.voxel_down_sample(p) for p, _ in levels] for c in clouds]
    graph = reg.PoseGraph()
    world = np.eye(4)
    graph.nodes.append(reg.PoseGraphNode(world))
    count = len(clouds)
    for i in range(count):
        j = (i + 1) % count
        motion = estimate[j] @ np.linalg.inv(world)  # the view before is where it was registered
        for level, (_, reach) in enumerate(levels):
            motion = reg.registration_icp(
                thinned[i][level], thinned[j][level], reach, motion,
                reg.TransformationEstimationPointToPlane(),
                reg.ICPConvergenceCriteria(1e-8, 1e-8, 60)).transformation
        information = reg.get_information_matrix_from_point_clouds(
            thinned[i][-1], thinned[j][-1], 2 * pitch, motion)
        if j:
            world = motion @ world
            graph.nodes.append(reg.PoseGraphNode(np.linalg.inv(world)))
        graph.edges.append(reg.PoseGraphEdge(i, j, motion, information, uncertain=not j))
    reg.global_optimization(graph, reg.GlobalOptimizationLevenbergMarquardt(),
                            reg.GlobalOptimizationConvergenceCriteria(),
                            reg.GlobalOptimizationOption(2 * pitch, 0.25, 1.0, 0))
    seconds = time.perf_counter() - start
    centre = np.array([0, 0, 610, 1])
    degrees = mm = 0.0
    first = graph.nodes[0].pose
    for node, true in zip(graph.nodes, truth):
        pose = np.linalg.inv(node.pose) @ first
        turn = pose[:3, :3] @ true[:3, :3].T
        sine = np.linalg.norm([turn[2, 1] - turn[1, 2], turn[0, 2] - turn[2, 0], turn[1, 0] - turn[0, 1]]) / 2
        degrees = max(degrees, np.degrees(np.arctan2(sine, (np.trace(turn) - 1) / 2)))
        mm = max(mm, np.linalg.norm((pose - true) @ centre))
    print(json.dumps({"views": count, "degrees": degrees, "mm": mm, "seconds": seconds}))


main()
