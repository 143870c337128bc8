// Polylines traced from edges: of the Canny steps that trace, and of the registration of views.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "core/scratch_arena.h"
#include "edges/edge_bits.h"
#include "edges/ragged_list.h"

namespace scansteps::edges {

/// A point in pixels, the centre of the first pixel at 0, 0.
struct Vertex
{
    float x, y;
    bool operator==(const Vertex&) const = default;
};

/// Distance from `p` to the segment from `a` to `b`, in pixels.
float distanceToSegment(Vertex p, Vertex a, Vertex b);

using Polylines = RaggedList<Vertex>;
/// Pixels as indices y × width + x, each a neighbour of the previous one.
using PixelPaths = RaggedList<std::uint32_t>;

/// Splits the edges of an image into paths. Pixels are 8-connected, except that two diagonal neighbours are
/// not linked when an edge pixel adjoins both, so a staircase has no junctions. Paths end at line ends and at
/// junctions; a junction pixel belongs to every path that meets there. Every link between two pixels is in
/// exactly one path. Isolated pixels make no path. Paths from ends and junctions come first, then closed
/// loops, each in row order of their first pixel.
class PathTracer
{
  public:
    /// The result is valid until the next call. Throws "edge map too large" for images of about 2^31 pixels
    /// or more.
    const PixelPaths& trace(const EdgeBits& edges);

  private:
    struct Neighbours;

    void loadEdges(const EdgeBits& edges);
    Neighbours around(std::uint32_t cell) const;
    bool isLink(std::uint32_t cell) const;
    std::uint32_t pixelOf(std::uint32_t cell) const
    {
        return (cell / stride_ - 1) * width_ + cell % stride_ - 1;
    }
    void follow(std::uint32_t from, std::uint32_t to);

    std::uint32_t width_ = 0, stride_ = 0;
    std::vector<std::uint8_t>
        cells_;  // the image with a border of one pixel, so that neighbours need no bounds check
    std::vector<std::uint32_t> edges_;  // all edge cells, in row order
    PixelPaths paths_;
};

/// Appends a simplified line to `out`: a subset of its vertices such that no other vertex is farther than
/// `tolerance` pixels from the simplified line (U. Ramer, "An iterative procedure for the polygonal
/// approximation of plane curves", 1972; D. Douglas and T. Peucker, 1973). A closed line is first split at
/// its first vertex and the one farthest from it.
void simplify(Polylines::Path line, float tolerance, Polylines& out, Scratch scratch = {});

/// Tolerance in pixels for lines through pixel centres.
inline constexpr float kPolylineTolerance = 1.0F;

/// Traces edges into simplified polylines, which replace the contents of `lines`. With `positions`, one
/// vertex for each pixel of the image, lines go through these instead of the pixel centres.
void tracePolylines(const EdgeBits& edges, PathTracer& tracer, Polylines& lines,
                    std::span<const Vertex> positions = {}, float tolerance = kPolylineTolerance,
                    Scratch scratch = {});

}  // namespace scansteps::edges
