// One view of the fusion: its mesh drawn into the picture of an ideal pinhole camera, so that points of space
// find the surface in front of or behind them without a search.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "camera_model.h"

namespace scansteps::scan {

/// A triangle mesh in camera coordinates, measured from the origin.
struct ViewMesh
{
    std::span<const float> vertices;         ///< x, y, z
    std::span<const std::uint32_t> indices;  ///< three per triangle, counter-clockwise seen from the camera
    std::span<const float> colours;          ///< red, green, blue per triangle, or empty
    std::span<const float> sigma;            ///< expected error of each vertex's z in mm, or empty
};

/// Depths on a grid of pixels: pixel (x, y) looks along ((x - left) / focal, (y - top) / focal, 1). A cell
/// has four pixels as corners and the number of the upper left one.
struct RangeImage
{
    int width = 0, height = 0;
    float focal = 1, left = 0, top = 0;
    std::vector<float> depth;  ///< z in mm; 0: no surface
    /// Cosine of the angle between surface and ray by the length of (x, y, 1): turns a difference of depth
    /// into the distance to the tangent plane.
    std::vector<float> factor;
    /// Of each cell, 0 where a corner is missing or the surface has a step: cos^2 / sigma^2, less at
    /// contours.
    std::vector<float> weight;
    std::vector<std::uint8_t> rgb;
    std::int64_t turnedAway = 0;  ///< triangles left out that show their back

    std::size_t bytes() const { return depth.size() * (3 * sizeof(float) + 3); }
};

struct RangeLimits
{
    float contour = 6;  ///< pixels from a contour within which the weight falls to 0
    std::size_t maxPixels = 1 << 26;
};

/// Draws the mesh with as many pixels as it has vertices or so: the pixel's pitch is that of the median
/// triangle, two of which fill a cell. Throws a C string when the mesh has no triangle that shows its front.
RangeImage rangeImageOf(const ViewMesh& mesh, const RangeLimits& limits);

}  // namespace scansteps::scan
