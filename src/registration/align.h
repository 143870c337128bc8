// Refines the motion between two views by their grey values in small patches, each with a gain and an offset
// of its own. Shared by the registration steps and ccanny5, ccanny5old and ccanny7.
#pragma once

#include <Eigen/Core>
#include <array>
#include <span>
#include <vector>

#include "core/scratch_arena.h"
#include "grey/grey_image.h"
#include "registration/motion.h"

namespace scansteps::registration {

/// A pixel around which grey values are compared.
struct SupportPoint
{
    float x, y;
};

/// Side of a patch in pixels.
inline constexpr int kPatchSide = 8;
using PatchValues = std::array<float, std::size_t{kPatchSide} * kPatchSide>;

/// 8 × 8 pixels of a view, prepared for comparison up to gain and offset.
struct Patch
{
    float x, y;                  ///< centre, between pixels
    float length;                ///< of the vector of its grey values around their mean
    PatchValues shape;           ///< that vector, divided by its length
    PatchValues dx, dy;          ///< gradient in grey levels per pixel, without what gain and offset explain
    std::array<double, 3> form;  ///< sums of dx dx, dx dy, dy dy
};

/// Cuts the patches around the points. Those closer than a patch to the border, or with a standard deviation
/// below 1.5 grey levels, are left out. Replaces the contents of `patches`.
void cutPatches(grey::GreyView image, std::span<const SupportPoint> points, std::vector<Patch>& patches);

struct Alignment
{
    Eigen::Matrix3d motion;  ///< maps a pixel (x, y, 1) of the first view to the second
    int visible = 0;         ///< patches that the second view shows
    int agreeing = 0;        ///< those that look alike there: correlation of at least `minCorrelation`
    double deviation = 1e9;  ///< expected error of the frame's corners, pixels
};

/// Minimises the grey differences between patches of the first view and the second view by up to `steps`
/// Gauss-Newton steps, inverse compositional, with a gain and an offset for each patch (S. Baker and I.
/// Matthews, "Lucas-Kanade 20 Years On: A Unifying Framework", IJCV 2004, and part 3, 2003) and robust
/// weights. The expected error follows from the scatter of the patches' displacements (P. Huber, "The
/// Behavior of Maximum Likelihood Estimates under Nonstandard Conditions", 1967), so that it covers what a
/// noise model does not. Converges from within about two pixels, so start with coarse levels. Both images
/// should be slightly smoothed and of equal size.
Alignment alignMotion(std::span<const Patch> patches, grey::GreyView second, MotionModel model,
                      const Eigen::Matrix3d& start, double minCorrelation, int steps = 8,
                      Scratch scratch = {});

}  // namespace scansteps::registration
