// Triangulation of points that lie on a grid of pixels.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace scansteps::scan {

struct MeshLimits
{
    float angle = 80;  ///< largest angle between a triangle's normal and the ray to it, degrees; 90: any
    float edge = 0;    ///< longest edge, millimetres; 0: any
};

struct GridPoints
{
    std::span<const std::int32_t> index;  ///< width x height: point of a pixel, or -1
    std::size_t width = 0, height = 0;
    std::span<const float> points;   ///< x, y, z
    std::span<const float> colours;  ///< red, green, blue; as many as points
};

struct GridMesh
{
    std::vector<float> vertices, normals;  ///< x, y, z; normals point to the camera and are of unit length
    std::vector<float> pixels;             ///< column, row of each vertex
    std::vector<std::uint32_t> indices;    ///< three per triangle, counter-clockwise as seen from the camera
    std::vector<float> colours;            ///< red, green, blue per triangle
    std::int64_t steep = 0;                ///< triangles left out by the limits
};

/// Two triangles for each cell of four neighbouring pixels, split along the shorter diagonal, and one where
/// a corner is missing. A triangle across a depth discontinuity is seen at a grazing angle and left out, as
/// is one with too long an edge. Points without a triangle are no vertices. The camera is at the origin.
GridMesh meshOfGrid(const GridPoints& grid, const MeshLimits& limits);

}  // namespace scansteps::scan
