// A view of a scene prepared for registration, and the registration of two: features matched, a motion
// estimated from them, refined by grey values along edges, and judged.
#pragma once

#include <span>
#include <vector>

#include "corners/corners.h"
#include "edges/polyline.h"
#include "registration/align.h"
#include "registration/match.h"
#include "registration/motion.h"

namespace scansteps::registration {

/// What is kept of a view: its features, their hash tables, and its smoothed grey values at two sizes.
struct PreparedView
{
    PreparedView() = default;
    PreparedView(PreparedView&&) = default;
    PreparedView& operator=(PreparedView&&) = default;

    std::vector<corners::CornerFeature> features;
    DescriptorIndex index;  ///< over `features`
    grey::GreyImage full, half;
    std::vector<SupportPoint> support;  ///< edge pixels of `full`
    double minCorrelation = 0.6;        ///< of the grey values there, in a registration that is trusted
};

struct Registration
{
    Eigen::Matrix3d motion = Eigen::Matrix3d::Identity();  ///< pixel (x, y, 1), first view to second
    int inliers = 0;             ///< matches that agree; 0 and the identity when the result is not trusted
    double correlation = 0;      ///< of the grey values along edges
    double deviation = 1e9;      ///< expected error of the frame's corners, pixels
    std::vector<Match> matches;  ///< all that were found, best first
};

/// Settings for `prepareView`; the defaults are good for photographs of 0.1 to 1 megapixel.
corners::CornerSettings registrationCorners();

/// Detects and keeps. The steepest pixels are the support.
void prepareView(corners::CornerDetector& detector, grey::GreyView image,
                 const corners::CornerSettings& settings, PreparedView& view);
/// The same with features that were found before.
void prepareView(grey::GreyView image, std::vector<corners::CornerFeature> features, PreparedView& view);

/// Registers `second` against `first`, views of the same size; keeps the memory of `result`. Not trusted, and
/// therefore the identity with 0 inliers, is a motion that fewer than 10 matches support, whose corners are
/// expected to be off by more than 1.5 pixels, or under which the grey values at the support points correlate
/// too little. The search starts at `initial`, an estimate from elsewhere, when at least as many matches
/// agree with it as with the one made from them.
void registerViews(const PreparedView& first, const PreparedView& second, MotionModel model,
                   Registration& result, Scratch scratch = {}, const Eigen::Matrix3d* initial = nullptr);
inline Registration registerViews(const PreparedView& first, const PreparedView& second, MotionModel model)
{
    Registration result;
    registerViews(first, second, model, result);
    return result;
}

/// Puts polylines in the place of the view's grey values: they are what is compared from now on.
void compareEdges(const edges::Polylines& lines, PreparedView& view);

/// True when `motion` sends the feature of the first view close to that of the second.
bool agrees(const Match& match, const PreparedView& first, const PreparedView& second,
            const Eigen::Matrix3d& motion);

}  // namespace scansteps::registration
