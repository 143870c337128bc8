// Regions enclosed by edges: closing gaps between line ends, finding and measuring the regions.
#pragma once

#include <cstdint>
#include <vector>

#include "edges/polyline.h"

namespace scansteps::edges {

/// Joins each line end to the nearest edge pixel within `reach` pixels that is not among the last pixels of
/// the line and is at most 60 degrees off the line's direction. Ends are processed in row order; the joining
/// pixels become edges. Returns the number of gaps filled.
int fillGaps(EdgeBits& edges, int reach, PathTracer& tracer, Scratch scratch = {});

/// Longest gap that the edge steps close, in pixels.
inline constexpr int kGapReach = 6;

struct EnclosedRegion
{
    std::int64_t area = 0;                         ///< pixels
    double x = 0, y = 0;                           ///< centroid in pixels
    int left = 0, top = 0, right = 0, bottom = 0;  ///< bounding box, inclusive
    bool open = false;                             ///< touches the border of the image
};

/// Measures the 4-connected components of the pixels that are not edges, in row order of their first pixels.
/// Replaces the contents of `regions`.
void enclosedRegions(const EdgeBits& edges, std::vector<EnclosedRegion>& regions, Scratch scratch = {});

}  // namespace scansteps::edges
