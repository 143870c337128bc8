// What a record says about places in its frame: features, lines, regions, matches, the outline of another
// frame.
#pragma once

#include <nlohmann/json.hpp>

#include <vector>

#include "scansteps/record.h"
#include "shot.h"

namespace scansteps::viewer {

using Json = nlohmann::json;

/// Sorts of overlays with their counts; "" says nothing of a sort that the record lacks.
///   {"corners": 812, "lines": 40, "regions": 0, "matches": 12, "outline": 1}
Json countOverlays(const Struct& record);

/// Numbers to draw, pixels of the frame; each member of `head` is [first number, how many].
///   corners   x, y, size, angle (radians)
///   lines     the vertices x, y; "lineEnds": index after the last vertex of each, negative for a closed one
///   ellipses  x, y, half axes, angle (degrees)
///   boxes     left, top, right, bottom
///   matches   x, y before, x, y now, 1 for an inlier
///   outline   x, y of the four corners of the frame before
/// What is inconsistent is left out; "more" names the sorts of which there are more than are drawn.
struct Overlays
{
    Json head = Json::object();
    std::vector<float> numbers;
};
Overlays overlaysOf(const Struct& record, const Layout& layout);

}  // namespace scansteps::viewer
