// Polylines traced from edges. The registration steps take points on them as support.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "core/scratch_arena.h"
#include "edges/edge_bits.h"
#include "edges/ragged_list.h"

namespace scansteps::edges {

struct Vertex
{
    float x, y;
    bool operator==(const Vertex&) const = default;
};

/// Distance of `p` from the nearest point of the segment from `a` to `b`.
float distanceToSegment(Vertex p, Vertex a, Vertex b);

using Polylines = RaggedList<Vertex>;
/// Each pixel (its place y × width + x) a neighbour of the one before.
using PixelPaths = RaggedList<std::uint32_t>;

/// Cuts the edges of an image into chains. Pixels are neighbours on all eight sides, but diagonally only
/// where no edge joins them at a right angle, so a staircase has no junctions. Chains end at ends and at
/// junctions, which belong to every chain that meets there; every link between two pixels lies in exactly one
/// chain. Pixels without a neighbour make no chain. Chains from ends and junctions come first, then closed
/// loops, each in row order of the pixel they begin at.
class PathTracer
{
  public:
    /// The result holds until the next call. Throws a text for images of 2^31 pixels and more.
    const PixelPaths& trace(const EdgeBits& edges);

  private:
    struct Neighbours;

    void takeEdges(const EdgeBits& edges);
    Neighbours around(std::uint32_t cell) const;
    bool isLink(std::uint32_t cell) const;
    std::uint32_t placeOf(std::uint32_t cell) const
    {
        return (cell / stride_ - 1) * width_ + cell % stride_ - 1;
    }
    void follow(std::uint32_t from, std::uint32_t to);

    std::uint32_t width_ = 0, stride_ = 0;
    std::vector<std::uint8_t>
        cells_;  // the image with a frame of one pixel, so that no neighbour needs a check
    std::vector<std::uint32_t> edges_;  // all edge cells, in row order
    PixelPaths chains_;
};

/// Adds a line to `out` with those of its vertices that stay when none of those left out may lie farther than
/// `tolerance` from the line through those kept: U. Ramer, "An iterative procedure for the polygonal
/// approximation of plane curves", 1972; D. Douglas and T. Peucker, 1973. A closed line is split at its first
/// vertex and the one farthest from it.
void simplify(Polylines::Chain line, float tolerance, Polylines& out, Scratch scratch = {});

/// Tolerance that the edge steps simplify with, pixels.
inline constexpr float kPolylineTolerance = 1.0F;

/// Edges as simplified polylines, which replace what `lines` held. With `positions`, one vertex for each
/// pixel of the image, lines go through these instead of the pixels' centres.
void tracePolylines(const EdgeBits& edges, PathTracer& tracer, Polylines& lines,
                    std::span<const Vertex> positions = {}, float tolerance = kPolylineTolerance,
                    Scratch scratch = {});

}  // namespace scansteps::edges
