// Rows in flight: a line with repeated edge samples, and a ring of rows that a column filter looks at.
// Private to the edge code.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "features/float_plane.h"

namespace scansteps {

/// Samples that a row in flight has on either side of the image.
inline constexpr std::size_t kMargin = 16;

inline std::size_t roundUp(std::size_t value, std::size_t unit)
{
    return (value + unit - 1) / unit * unit;
}

/// Repeats the outermost samples of line[0] ... line[width - 1]: kMargin of them to the left, and to the
/// right up to kMargin beyond the padded width.
inline void repeatEdges(float* line, std::size_t width, std::size_t padded)
{
    std::fill(line - kMargin, line, line[0]);
    std::fill(line + width, line + padded + kMargin, line[width - 1]);
}

/// Row y of a column filter that reaches `radius` rows up and down lives in slot y % (2 radius + 1).
struct RowRing
{
    float* rows = nullptr;  // first sample of slot 0
    std::size_t pitch = 0;
    std::size_t slots = 1;

    float* slot(std::size_t y) const { return rows + y % slots * pitch; }
    /// Pointers to the rows y - radius ... y + radius, those beyond the image being its outermost ones.
    void around(std::size_t y, std::size_t height, std::size_t radius, const float** out) const
    {
        for (std::size_t k = 0; k <= 2 * radius; ++k) {
            const std::size_t row = y + k < radius ? 0 : std::min(y + k - radius, height - 1);
            out[k] = slot(row);
        }
    }
};

}  // namespace scansteps
