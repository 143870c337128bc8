// Noise of a frame, and smoothing with a Gaussian: before the sub-pixel edges of ccanny2c.
#pragma once

#include <vector>

#include "core/scratch_arena.h"
#include "edges/float_plane.h"

namespace scansteps::edges {

/// Standard deviation of the noise, from the median response of a Laplacian difference that edges hardly
/// affect (J. Immerkær, "Fast Noise Variance Estimation", CVIU 1996, with the median in place of the mean).
/// Every fourth row and column is used. 0 for planes smaller than 3 × 3.
double noiseOf(const FloatPlane& plane, Scratch scratch = {});

/// The standard deviation in pixels of the Gaussian that an image with this noise needs: 0 below a grey
/// level, at most 1.5.
double smoothingFor(double noise);

/// Gaussian filter in place, cut off at three standard deviations and a half; sigma up to 20 pixels.
void gaussian(FloatPlane& plane, double sigma, Scratch scratch = {});

}  // namespace scansteps::edges
