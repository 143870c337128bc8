// Edges with positions to a fraction of a pixel.
#pragma once

#include <vector>

#include "core/scratch_arena.h"
#include "edges/edge_bits.h"
#include "edges/float_plane.h"
#include "edges/polyline.h"

namespace scansteps::edges {

/// Planes that are kept from frame to frame.
struct SubpixelPlanes
{
    FloatPlane dx, dy;
};

/// Where the second derivative along the gradient crosses zero: pixels whose gradient length (Sobel kernels
/// of size `aperture`: 3, 5 or 7, else "aperture_size wrong") exceeds that of both neighbours along the
/// gradient, refined by a parabola through the three, after F. Devernay, "A Non-Maxima Suppression Method for
/// Edge Detection with Sub-Pixel Accuracy", INRIA RR-2724, 1995. Of these, the ones connected (on eight
/// sides, through magnitudes |dx| + |dy| above `low`) to one above `high` are edges; thresholds may be
/// swapped. `positions` gets room for every pixel of the image and takes the vertices of edges; others mean
/// nothing.
void subpixelEdges(const FloatPlane& image, double low, double high, int aperture, SubpixelPlanes& planes,
                   EdgeBits& edges, std::vector<Vertex>& positions, Scratch scratch = {});

namespace scalar {
void subpixelEdges(const FloatPlane& image, double low, double high, int aperture, SubpixelPlanes& planes,
                   EdgeBits& edges, std::vector<Vertex>& positions);
}  // namespace scalar

}  // namespace scansteps::edges
