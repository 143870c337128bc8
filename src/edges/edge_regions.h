// What edges enclose: gaps between the ends of lines closed, regions found and measured.
#pragma once

#include <cstdint>
#include <vector>

#include "edges/polyline.h"

namespace scansteps::edges {

/// Joins each end of a line to the nearest edge pixel of another line within `reach` pixels that lies ahead,
/// less than 60 degrees off the line's direction; ends are taken in row order, and the joining pixels become
/// edges. Returns the number of gaps filled.
int fillGaps(EdgeBits& edges, int reach, PathTracer& tracer, Scratch scratch = {});

/// Distance that the edge steps bridge, pixels.
inline constexpr int kGapReach = 6;

struct EnclosedRegion
{
    std::int64_t area = 0;                         ///< pixels
    double x = 0, y = 0;                           ///< centre of gravity
    int left = 0, top = 0, right = 0, bottom = 0;  ///< of the pixels, both ends included
    bool open = false;                             ///< touches the border of the image
};

/// Measures the connected parts (4-neighbourhood) of the pixels that are no edges, in row order of their
/// first pixels; they replace what `regions` held.
void enclosedRegions(const EdgeBits& edges, std::vector<EnclosedRegion>& regions, Scratch scratch = {});

}  // namespace scansteps::edges
