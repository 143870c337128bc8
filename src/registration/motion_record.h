// Motions in records: float arrays 3 × 3 × 1, row by row.
#pragma once

#include <Eigen/Core>
#include <cmath>
#include <optional>

#include "scansteps/array.h"
#include "scansteps/error.h"
#include "scansteps/record.h"

namespace scansteps::registration {

/// The array for a matrix.
inline Array matrixArray(const Eigen::Matrix3d& matrix)
{
    Array array(Kind::Float, 3, 3);
    for (int row = 0; row < 3; ++row)
        for (int column = 0; column < 3; ++column)
            array.elements<float>()[std::size_t(3 * row + column)] = float(matrix(row, column));
    return array;
}

/// The motion in the entry "transform"; nothing when there is no such entry, or when "inliers" is 0. Throws
/// when "transform" is not a float array 3 × 3 × 1, or, unless "inliers" is 0, when a number is not finite or
/// the origin maps to infinity.
inline std::optional<Eigen::Matrix3d> motionOf(const varitype& record)
{
    if (!record.has("transform")) return std::nullopt;
    const varitype entry = record["transform"];
    const Array& array = entry.as<Array>();
    if (array.kind() != Kind::Float || array.dim(0) != 3 || array.dim(1) != 3 || array.dim(2) != 1)
        fail("transform: not 3 x 3 floats");
    const auto values = array.elements<float>();
    const Eigen::Matrix3d motion =
        Eigen::Map<const Eigen::Matrix<float, 3, 3, Eigen::RowMajor>>(values.data()).cast<double>();
    if (record.has("inliers") && record["inliers"].as<std::int32_t>() == 0) return std::nullopt;
    if (!motion.allFinite() || std::abs(motion(2, 2)) < 1e-6) fail("transform: not a motion of the plane");
    return Eigen::Matrix3d(motion / motion(2, 2));
}

}  // namespace scansteps::registration
