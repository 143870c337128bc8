// Edges with positions to a fraction of a pixel.
#pragma once

#include <cstdint>
#include <vector>

#include "features/float_plane.h"
#include "features/polyline.h"

namespace scansteps {

/// Where the second derivative along the gradient crosses zero: pixels whose gradient magnitude |dx| + |dy|
/// (Sobel kernels of size `aperture`: 3, 5 or 7, else "aperture_size wrong") exceeds that of both neighbours
/// along the gradient, refined by a parabola through the three, after F. Devernay, "A Non-Maxima Suppression
/// Method for Edge Detection with Sub-Pixel Accuracy", INRIA RR-2724, 1995. Of these, the ones connected (on
/// eight sides, through magnitudes above `low`) to one above `high` are edges; thresholds may be swapped.
/// `map` takes 255 on edges and 0 elsewhere, row by row; `positions` a vertex for every pixel, its own centre
/// where there is no edge.
void subpixelEdges(const FloatPlane& image, double low, double high, int aperture,
                   std::vector<std::uint8_t>& map, std::vector<Vertex>& positions);

}  // namespace scansteps
