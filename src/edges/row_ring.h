// Rows in flight: a line with repeated edge samples, and a ring of rows that a column filter looks at.
// Private to the edge code.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "edges/float_plane.h"

namespace scansteps::edges {

/// Samples that a row in flight has on either side: room for what filters look at beyond its ends, and for
/// whole vectors.
inline constexpr std::size_t kMargin = 32;

inline std::size_t roundUp(std::size_t value, std::size_t unit)
{
    return (value + unit - 1) / unit * unit;
}

/// Planes of this size and above leave the caches before anyone reads them. A result that goes elsewhere than
/// where its source came from is then written past the caches, which spares fetching the memory first.
inline constexpr std::size_t kPastCacheBytes = std::size_t{2} << 20;

/// A range of columns of an image.
struct Columns
{
    std::size_t first = 0, count = 0;

    /// The range with `reach` more columns on either side, as far as the image has them.
    Columns widened(std::size_t reach, std::size_t width) const
    {
        const std::size_t from = first - std::min(first, reach);
        return {from, std::min(first + count + reach, width) - from};
    }
};

/// The line holds samples from line[from] to line[to - 1]; repeats the outermost ones down to line[lowest]
/// and up to line[highest - 1].
inline void repeatEdges(float* line, std::ptrdiff_t from, std::ptrdiff_t to, std::ptrdiff_t lowest,
                        std::ptrdiff_t highest)
{
    std::fill(line + std::min(lowest, from), line + from, line[from]);
    std::fill(line + to, line + std::max(highest, to), line[to - 1]);
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

}  // namespace scansteps::edges
