// Points on edges as support for the registration of views. The registration steps share it.
#pragma once

#include <vector>

#include "core/scratch_arena.h"
#include "edges/float_plane.h"
#include "edges/polyline.h"
#include "edges/subpixel_edges.h"
#include "registration/align.h"

namespace scansteps::registration {

/// Of each cell of 8 × 8 pixels that a polyline passes, the pixel on it with the steepest gradient, if that
/// is at least `least` grey levels a pixel. Cells in row order; a rim of two cells is left out, and what lies
/// outside the image.
std::vector<SupportPoint> pointsOnEdges(const edges::Polylines& lines, grey::GreyView image, float least = 4);

/// Draws polylines as ridges: 255 on a line, falling to 0 at `radius` pixels from it. The image takes the
/// size. So edges can be compared as grey values are, whatever has become of the picture that they were found
/// in. Segments far longer than the image is wide are left out.
void drawRidges(const edges::Polylines& lines, int width, int height, grey::GreyImage& out, float radius = 4);

/// Finds the edges of a smoothed image, to a fraction of a pixel, as polylines: for views that come without.
class EdgeFinder
{
  public:
    /// The result holds until the next call.
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
