// Smoothing and downscaling of 8-bit grey images. Results do not depend on the instruction set.
#pragma once

#include "core/scratch_arena.h"
#include "grey/grey_image.h"

namespace scansteps::grey {

/// The window of a box filter of `size`: odd, clamped to 1 ... 31. Even sizes are rounded up.
int oddWindow(int size);

/// Rounded mean over a box of `size` × `size` pixels (see oddWindow). Beyond the borders the outermost pixels
/// are repeated. Returns a view of `out`, or `image` itself when it is empty or the window is 1.
GreyView boxMean(GreyView image, int size, GreyImage& out, Scratch scratch = {});

/// Rounded binomial filter (1 4 6 4 1) along both axes, standard deviation 1. Borders as above.
void binomial5(GreyView image, GreyImage& out, Scratch scratch = {});

/// Downscales to half the size: rounded means of 2 × 2 pixels. An odd last row or column is dropped.
void halve(GreyView image, GreyImage& out);

/// Downscales to two thirds of the size: each output pixel is the rounded mean over the 1.5 × 1.5 input
/// pixels it covers. Rows and columns beyond a multiple of three are dropped.
void twoThirds(GreyView image, GreyImage& out, Scratch scratch = {});

namespace scalar {
GreyView boxMean(GreyView image, int size, GreyImage& out);
void binomial5(GreyView image, GreyImage& out);
void halve(GreyView image, GreyImage& out);
void twoThirds(GreyView image, GreyImage& out);
}  // namespace scalar

}  // namespace scansteps::grey
