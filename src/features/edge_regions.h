// What an edge map encloses: gaps between the ends of lines closed, regions labelled and measured.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "features/polyline.h"

namespace scansteps {

/// Joins each end of a line to the nearest pixel of another line within `reach` pixels that lies ahead, less
/// than 60 degrees off the line's direction; ends are taken in row order, and the joining pixels are set to
/// 255. Returns the number of gaps filled.
int fillGaps(std::span<std::uint8_t> map, int width, int height, int reach);

/// Distance that the edge steps bridge, pixels.
inline constexpr int kGapReach = 6;

struct EnclosedRegion
{
    std::int64_t area = 0;                         ///< pixels
    double x = 0, y = 0;                           ///< centre of gravity
    int left = 0, top = 0, right = 0, bottom = 0;  ///< of the pixels, both ends included
    bool open = false;                             ///< touches the border of the image
};

/// Labels the connected parts (4-neighbourhood) of the pixels that are 0 in the map: 1, 2, ... in row order
/// of their first pixels; edge pixels are 0. `labels` takes one label a pixel.
std::vector<EnclosedRegion> labelRegions(std::span<const std::uint8_t> map, int width, int height,
                                         std::vector<std::int32_t>& labels);

}  // namespace scansteps
