// Support points on edges, for the registration of views by c2rege and c2rege5.
#pragma once

#include <vector>

#include "core/scratch_arena.h"
#include "edges/float_plane.h"
#include "edges/polyline.h"
#include "edges/subpixel_edges.h"
#include "registration/align.h"

namespace scansteps::registration {

/// In each cell of 8 × 8 pixels that polylines pass through, the pixel on them with the steepest gradient, if
/// that is at least `minGradient` grey levels per pixel. Cells are in row order, without a border of two
/// cells; parts of lines outside the image are ignored.
std::vector<SupportPoint> pointsOnEdges(const edges::Polylines& lines, grey::GreyView image,
                                        float minGradient = 4);

/// Draws polylines as ridges, 255 on a line and falling to 0 at `radius` pixels from it, so that edges can be
/// aligned like grey values when the image they were found in is no longer available. `out` is resized to
/// width × height. Segments much longer than the image are skipped.
void drawRidges(const edges::Polylines& lines, int width, int height, grey::GreyImage& out, float radius = 4);

/// Finds the edges of a smoothed image as sub-pixel polylines, for views whose record has none.
class EdgeFinder
{
  public:
    /// The result is valid until the next call.
    const edges::Polylines& edgesOf(grey::GreyView image);

  private:
    edges::FloatPlane plane_;
    edges::SubpixelPlanes planes_;
    edges::EdgeBits edges_;
    std::vector<edges::Vertex> positions_;
    edges::PathTracer tracer_;
    edges::Polylines lines_;
    ScratchArena memory_;
};

}  // namespace scansteps::registration
