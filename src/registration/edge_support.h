// Points on edges as support for the registration of views. The registration steps share it.
#pragma once

#include <vector>

#include "registration/align.h"
#include "edges/float_plane.h"
#include "edges/polyline.h"
#include "edges/subpixel_edges.h"
#include "core/scratch_arena.h"

namespace scansteps {

/// Of each cell of 8 × 8 pixels that a polyline passes, the pixel on it with the steepest gradient, if that
/// is at least `least` grey levels a pixel. Cells in row order; a rim of two cells is left out, and what lies
/// outside the image.
std::vector<SupportPoint> pointsOnEdges(const Polylines& lines, GreyView image, float least = 4);

/// Draws polylines as ridges: 255 on a line, falling to 0 at `radius` pixels from it. The image takes the
/// size. So edges can be compared as grey values are, whatever has become of the picture that they were found
/// in. Segments far longer than the image is wide are left out.
void drawRidges(const Polylines& lines, int width, int height, GreyImage& out, float radius = 4);

/// Finds the edges of a smoothed image, to a fraction of a pixel, as polylines: for views that come without.
class EdgeFinder
{
  public:
    /// The result holds until the next call.
    const Polylines& edgesOf(GreyView image);

  private:
    FloatPlane plane_;
    SubpixelPlanes planes_;
    EdgeBits edges_;
    std::vector<Vertex> positions_;
    ChainTracer tracer_;
    Polylines lines_;
    WorkMemory memory_;
};

}  // namespace scansteps
