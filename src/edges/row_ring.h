// Row buffers of the streaming filters: a line whose outermost samples are repeated, and a ring of rows for a
// column filter. Private to this module.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "edges/float_plane.h"

namespace scansteps::edges {

/// Spare samples on either side of a row buffer, for filters that read beyond its ends and for whole vectors.
inline constexpr std::size_t kMargin = 32;

inline std::size_t roundUp(std::size_t value, std::size_t unit)
{
    return (value + unit - 1) / unit * unit;
}

/// Planes of at least this size do not stay in the caches until they are read. A result that is not written
/// in place then bypasses the caches, which saves reading the memory first.
inline constexpr std::size_t kPastCacheBytes = std::size_t{2} << 20;

/// A range of columns of an image.
struct Columns
{
    std::size_t first = 0, count = 0;

    /// The range with `reach` more columns on either side, clipped to the image.
    Columns widened(std::size_t reach, std::size_t width) const
    {
        const std::size_t from = first - std::min(first, reach);
        return {from, std::min(first + count + reach, width) - from};
    }
};

/// Repeats the outermost of the samples line[from] to line[to - 1] down to line[lowest] and up to
/// line[highest - 1].
inline void repeatEdges(float* line, std::ptrdiff_t from, std::ptrdiff_t to, std::ptrdiff_t lowest,
                        std::ptrdiff_t highest)
{
    std::fill(line + std::min(lowest, from), line + from, line[from]);
    std::fill(line + to, line + std::max(highest, to), line[to - 1]);
}

/// Rows that a column filter reads: row y is in slot y % slots, with 2 radius + 1 slots or more.
struct RowRing
{
    float* rows = nullptr;  // first sample of slot 0
    std::size_t pitch = 0;
    std::size_t slots = 1;

    float* slot(std::size_t y) const { return rows + y % slots * pitch; }
    /// Pointers to the rows y - radius ... y + radius, clamped to the image.
    void around(std::size_t y, std::size_t height, std::size_t radius, const float** out) const
    {
        for (std::size_t k = 0; k <= 2 * radius; ++k) {
            const std::size_t row = y + k < radius ? 0 : std::min(y + k - radius, height - 1);
            out[k] = slot(row);
        }
    }
};

}  // namespace scansteps::edges
