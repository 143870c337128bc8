// Smoothing and reducing 8-bit grey images.
#pragma once

#include "core/scratch_arena.h"
#include "grey/grey_image.h"

namespace scansteps::grey {

/// The window a box filter of `size` has: odd, 1 to 31. Even sizes are rounded up.
int oddWindow(int size);

/// Rounded mean over a box of `size` × `size` pixels (see oddWindow). The outermost pixels are repeated
/// beyond the borders. Returns a view of `out`, or `image` itself when there is nothing to do.
GreyView boxMean(GreyView image, int size, GreyImage& out, Scratch scratch = {});

/// Rounded binomial filter (1 4 6 4 1) along both axes, standard deviation 1. Borders as above.
void binomial5(GreyView image, GreyImage& out, Scratch scratch = {});

/// Half the size: rounded means of 2 × 2 pixels. An odd last row or column is left out.
void halve(GreyView image, GreyImage& out);

/// Two thirds of the size: each output pixel is the mean over the 1.5 × 1.5 input pixels it covers, rounded.
/// What is left after multiples of three rows and columns is left out.
void twoThirds(GreyView image, GreyImage& out, Scratch scratch = {});

namespace scalar {
GreyView boxMean(GreyView image, int size, GreyImage& out);
void binomial5(GreyView image, GreyImage& out);
void halve(GreyView image, GreyImage& out);
void twoThirds(GreyView image, GreyImage& out);
}  // namespace scalar

}  // namespace scansteps::grey
