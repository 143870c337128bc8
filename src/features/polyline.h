// Polylines traced from an edge map. The registration steps take points on them as support.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace scansteps {

struct Vertex
{
    float x, y;
    bool operator==(const Vertex&) const = default;
};

/// Distance of `p` from the nearest point of the segment from `a` to `b`.
float distanceToSegment(Vertex p, Vertex a, Vertex b);

struct Polyline
{
    std::vector<Vertex> verts;
    bool closed = false;  ///< the last vertex is joined to the first
    bool operator==(const Polyline&) const = default;
};

/// Places (y × width + x) of the pixels of one chain, each a neighbour of the one before.
struct PixelChain
{
    std::vector<std::uint32_t> places;
    bool closed = false;
};

/// Chains of the pixels that are not 0 in a map of width × height bytes (at most 2^31 - 1, else a text is
/// thrown). Pixels are neighbours on all eight sides, but diagonally only where no pixel of the map joins
/// them at a right angle, so a staircase has no junctions. Chains end at ends and at junctions, which belong
/// to every chain that meets there; every link between two pixels lies in exactly one chain. Pixels without a
/// neighbour make no chain. Chains from ends and junctions come first, then closed loops, each in row order
/// of the pixel they begin at.
std::vector<PixelChain> traceChains(std::span<const std::uint8_t> map, int width, int height);

/// The vertices of a line that stay when none of those left out may lie farther than `tolerance` from the
/// line through those kept: U. Ramer, "An iterative procedure for the polygonal approximation of plane
/// curves", 1972; D. Douglas and T. Peucker, 1973. A closed line is split at its first vertex and the one
/// farthest from it.
Polyline simplify(const Polyline& line, float tolerance);

/// Tolerance that the edge steps simplify with, pixels.
inline constexpr float kPolylineTolerance = 1.0F;

/// Chains of an edge map as simplified polylines. With `positions`, one vertex for each pixel of the map,
/// lines go through these instead of the pixels' centres.
std::vector<Polyline> tracePolylines(std::span<const std::uint8_t> map, int width, int height,
                                     float tolerance = kPolylineTolerance,
                                     std::span<const Vertex> positions = {});

}  // namespace scansteps
