// Edges with sub-pixel positions: the kernel of ccanny2c, and of the registration of views.
#pragma once

#include <vector>

#include "core/scratch_arena.h"
#include "edges/edge_bits.h"
#include "edges/float_plane.h"
#include "edges/polyline.h"

namespace scansteps::edges {

/// Work memory; reuse one from frame to frame.
struct SubpixelPlanes
{
    FloatPlane dx, dy;
};

/// Finds pixels whose gradient length (Sobel kernels of size `aperture`) is a maximum along the gradient, and
/// refines their positions by a parabola through three lengths (F. Devernay, "A Non-Maxima Suppression Method
/// for Edge Detection with Sub-Pixel Accuracy", INRIA RR-2724, 1995). Those with a magnitude |dx| + |dy|
/// above `low` that are 8-connected to one above `high` are edges; thresholds are swapped when low > high.
/// `positions` is resized to width × height; elements that are not edges are unspecified. Throws
/// "aperture_size wrong" unless the aperture is 3, 5 or 7.
void subpixelEdges(const FloatPlane& image, double low, double high, int aperture, SubpixelPlanes& planes,
                   EdgeBits& edges, std::vector<Vertex>& positions, Scratch scratch = {});

namespace scalar {
void subpixelEdges(const FloatPlane& image, double low, double high, int aperture, SubpixelPlanes& planes,
                   EdgeBits& edges, std::vector<Vertex>& positions);
}  // namespace scalar

}  // namespace scansteps::edges
