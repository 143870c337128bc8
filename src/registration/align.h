// Refines a motion between two views by their grey values along edges. The registration steps and the edge
// steps that follow the camera share it.
#pragma once

#include <Eigen/Core>
#include <span>
#include <vector>

#include "core/scratch_arena.h"
#include "grey/grey_image.h"
#include "registration/motion.h"

namespace scansteps::registration {

struct SupportPoint
{
    float x, y;
};

/// Where the grey values of an image say most about its position: of each cell of 8 × 8 pixels the pixel with
/// the steepest gradient, if that is at least `least` grey levels a pixel. Cells in row order; a rim of two
/// cells is left out.
/// They replace what `points` held.
void steepestPixels(grey::GreyView image, std::vector<SupportPoint>& points, float least = 4);

struct Alignment
{
    Eigen::Matrix3d motion;  ///< pixel (x, y, 1) of the first view to the second
    double correlation = 0;  ///< of the grey values at the support points both views see, -1 to 1
    int points = 0;          ///< how many those are
    double deviation = 1e9;  ///< expected error of the frame's corners in pixels, from the covariance
};

/// Gauss-Newton steps on the grey differences at the support points of the first view, with a common gain and
/// offset and robust weights (S. Baker and I. Matthews, "Lucas-Kanade 20 Years On", IJCV 2004; the forward
/// compositional form). Finds the way from within about two pixels, so coarse levels come first. Both images
/// should be smoothed a little.
Alignment alignMotion(grey::GreyView first, grey::GreyView second, std::span<const SupportPoint> support,
                      MotionModel model, const Eigen::Matrix3d& start, int steps = 8, Scratch scratch = {});

}  // namespace scansteps::registration
