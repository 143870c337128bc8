// Depth from rays and projector columns, or from rays and a plane of laser light.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "calibration.h"

namespace scansteps::scan {

/// Normalised, undistorted coordinates of every pixel of a camera, row by row; NaN where the lens model has
/// no inverse.
struct RayTable
{
    std::vector<float> x, y;
};
RayTable raysOf(const CameraModel& camera);

/// Depth z along the rays (x, y, 1) z in camera coordinates, millimetres, where they meet the surface of
/// their projector column: a plane, or with lens distortion a curved surface, on which the distortion is
/// solved by fixed-point iteration. `sigma` is the expected error of z for `quality` pixels of the column.
/// NaN where there is no point in front of both devices. All spans have the same length.
void depthOfColumns(const Projector& projector, std::span<const float> rayX, std::span<const float> rayY,
                    std::span<const float> column, std::span<const float> quality, std::span<float> depth,
                    std::span<float> sigma);
namespace scalar {
void depthOfColumns(const Projector& projector, std::span<const float> rayX, std::span<const float> rayY,
                    std::span<const float> column, std::span<const float> quality, std::span<float> depth,
                    std::span<float> sigma);
}  // namespace scalar

/// Points of the pixels that have one.
struct PointGrid
{
    std::vector<std::int32_t> index;  ///< number of the point of a pixel, or -1
    std::vector<float> points;        ///< x, y, z each, millimetres
    std::vector<float> sigma;         ///< expected error of z, millimetres
    std::vector<std::size_t> pixels;  ///< pixel of each point
};
PointGrid pointsOf(const RayTable& rays, std::span<const float> depth, std::span<const float> sigma);

/// Measured minus predicted projector row of each pixel that has a depth and a row; NaN elsewhere.
std::vector<float> rowResiduals(const Projector& projector, const RayTable& rays,
                                std::span<const float> depth, std::span<const float> row);

}  // namespace scansteps::scan
