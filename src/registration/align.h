// Refines the motion between two views by their grey values along edges. Shared by the registration steps and
// ccanny5, ccanny5old and ccanny7.
#pragma once

#include <Eigen/Core>
#include <span>
#include <vector>

#include "core/scratch_arena.h"
#include "grey/grey_image.h"
#include "registration/motion.h"

namespace scansteps::registration {

/// A pixel at which grey values are compared.
struct SupportPoint
{
    float x, y;
};

/// Selects the pixels that constrain an alignment most: in each cell of 8 × 8 pixels the one with the
/// steepest gradient, if that is at least `minGradient` grey levels per pixel. Cells are in row order,
/// without a border of two cells. Replaces the contents of `points`.
void steepestPixels(grey::GreyView image, std::vector<SupportPoint>& points, float minGradient = 4);

struct Alignment
{
    Eigen::Matrix3d motion;  ///< maps a pixel (x, y, 1) of the first view to the second
    double correlation = 0;  ///< of the grey values at the support points both views see, -1 to 1
    double deviation = 1e9;  ///< expected error of the frame's corners in pixels, from the covariance
};

/// Minimises the grey differences at the support points of the first view by up to `steps` Gauss-Newton
/// steps, with a common gain and offset and robust weights (S. Baker and I. Matthews, "Lucas-Kanade 20 Years
/// On", IJCV 2004; forward compositional form). Converges from within about two pixels, so start with coarse
/// levels. Both images should be slightly smoothed.
Alignment alignMotion(grey::GreyView first, grey::GreyView second, std::span<const SupportPoint> support,
                      MotionModel model, const Eigen::Matrix3d& start, int steps = 8, Scratch scratch = {});

}  // namespace scansteps::registration
