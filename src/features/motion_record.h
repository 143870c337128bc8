// Motions in records: float arrays 3 × 3 × 1, row by row. The registration steps share it.
#pragma once

#include <Eigen/Core>

#include "scansteps/array.h"

namespace scansteps {

inline Array matrixArray(const Eigen::Matrix3d& matrix)
{
    Array array(Kind::Float, 3, 3);
    for (int row = 0; row < 3; ++row)
        for (int column = 0; column < 3; ++column)
            array.elements<float>()[std::size_t(3 * row + column)] = float(matrix(row, column));
    return array;
}

}  // namespace scansteps
