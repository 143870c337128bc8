// Prepares views of a scene for registration and registers two of them: matches features, estimates a motion
// from the matches, refines it by grey values along edges, and checks the result.
#pragma once

#include <span>
#include <vector>

#include "corners/corners.h"
#include "edges/polyline.h"
#include "registration/align.h"
#include "registration/match.h"
#include "registration/motion.h"

namespace scansteps::registration {

/// The data of a view: its features, the words of their descriptors, and smoothed grey values at full and
/// half size.
struct PreparedView
{
    PreparedView() = default;
    PreparedView(PreparedView&&) = default;
    PreparedView& operator=(PreparedView&&) = default;

    std::vector<corners::CornerFeature> features;
    DescriptorIndex index;  ///< over `features`
    grey::GreyImage full, half;
    std::vector<Patch> patches, coarsePatches;  ///< of `full` and `half`
    double minCorrelation = 0.75;               ///< of a patch that counts as seen in both views

    grey::GreyImage small;  ///< work memory of prepareView(), like the next two
    std::vector<SupportPoint> points;
    std::vector<bool> taken;
};

struct Registration
{
    Eigen::Matrix3d motion =
        Eigen::Matrix3d::Identity();  ///< maps a pixel (x, y, 1) of the first view to the second
    int inliers = 0;                  ///< matches that agree; 0 when the result is not reliable
    double agreement = 0;             ///< share of the visible patches that look alike in both views
    double deviation = 1e9;           ///< expected error of the frame's corners, pixels
    std::vector<Match> matches;       ///< all matches, best first
};

/// Corner settings for prepareView(): up to `count` features spread over the frame, whatever its contrast.
corners::CornerSettings registrationCorners(int count = 1500);

/// Detects the features of a view, of frames of a megapixel or more at half size, and cuts its patches.
void prepareView(corners::CornerDetector& detector, grey::GreyView image,
                 const corners::CornerSettings& settings, PreparedView& view);
/// The same with features that have been detected before.
void prepareView(grey::GreyView image, std::vector<corners::CornerFeature> features, PreparedView& view);

/// Registers `second` with `first`, views of the same size; reuses the memory of `result`. A motion is
/// unreliable when fewer than 10 matches or too few patches agree with it, when the expected error of the
/// frame's corners exceeds 1 pixel, or when a homography explains the matches better and moves the corners
/// elsewhere; the result is then the identity with 0 inliers. Refinement starts from `initial`, if given,
/// when at least as many matches agree with it as with the motion estimated from them. A refined motion that
/// fewer matches agree with, or whose expected error is larger, is dropped for the estimate from the matches.
void registerViews(const PreparedView& first, const PreparedView& second, MotionModel model,
                   Registration& result, Scratch scratch = {}, const Eigen::Matrix3d* initial = nullptr);
inline Registration registerViews(const PreparedView& first, const PreparedView& second, MotionModel model)
{
    Registration result;
    registerViews(first, second, model, result);
    return result;
}

/// Replaces the grey values of the view by polylines drawn as ridges, so that registrations align these.
void alignByEdges(const edges::Polylines& lines, PreparedView& view);

/// True when `motion` maps the first feature of a match close to the second: within a pixel more than the
/// larger size.
bool isInlier(const Match& match, const PreparedView& first, const PreparedView& second,
              const Eigen::Matrix3d& motion);

}  // namespace scansteps::registration
