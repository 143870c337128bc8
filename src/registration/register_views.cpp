// Registration of two views: matching, robust estimation, alignment at two sizes, and checks of the result.
#include "registration/register_views.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "grey/grey_filters.h"
#include "registration/edge_support.h"

namespace scansteps::registration {
namespace {

constexpr int kMinInliers = 10;
constexpr int kMaxSteps = 8;  // of each alignment
constexpr double kMaxDeviation = 1.5;
constexpr double kMinPhotoCorrelation = 0.6;
constexpr double kMinEdgeCorrelation = 0.25;  // for drawn edges, which differ from view to view

std::pmr::vector<PointPair> pairsOf(const std::vector<Match>& matches, const PreparedView& first,
                                    const PreparedView& second, Scratch scratch)
{
    std::pmr::vector<PointPair> pairs(scratch);
    pairs.reserve(matches.size());
    for (const Match& m : matches) {
        const corners::CornerFeature& a = first.features[m.first];
        const corners::CornerFeature& b = second.features[m.second];
        pairs.push_back(
            {double(a.x), double(a.y), double(b.x), double(b.y), double(std::max(a.size, b.size))});
    }
    return pairs;
}

// The motion between images of half the size, whose pixel (0, 0) lies at (0.5, 0.5) of the full image.
Eigen::Matrix3d halved(const Eigen::Matrix3d& motion)
{
    Eigen::Matrix3d up, down;
    up << 2, 0, 0.5, 0, 2, 0.5, 0, 0, 1;
    down << 0.5, 0, -0.25, 0, 0.5, -0.25, 0, 0, 1;
    return down * motion * up;
}

// The inverse of halved().
Eigen::Matrix3d doubled(const Eigen::Matrix3d& motion)
{
    Eigen::Matrix3d up, down;
    up << 2, 0, 0.5, 0, 2, 0.5, 0, 0, 1;
    down << 0.5, 0, -0.25, 0, 0.5, -0.25, 0, 0, 1;
    return up * motion * down;
}

// Detects images of drawn edges, black and white only, for which less correlation is required.
double minCorrelationOf(grey::GreyView image)
{
    for (int y = 0; y < image.height; ++y) {
        const std::span row(image.row(y), std::size_t(image.width));
        if (std::any_of(row.begin(), row.end(), [](std::uint8_t v) { return v != 0 && v != 255; }))
            return kMinPhotoCorrelation;
    }
    return kMinEdgeCorrelation;
}

int countInliers(const std::vector<Match>& matches, const PreparedView& first, const PreparedView& second,
                 const Eigen::Matrix3d& motion)
{
    return int(std::count_if(matches.begin(), matches.end(),
                             [&](const Match& m) { return isInlier(m, first, second, motion); }));
}

}  // namespace

corners::CornerSettings registrationCorners()
{
    corners::CornerSettings settings;
    settings.fast = false;
    return settings;
}

void prepareView(corners::CornerDetector& detector, grey::GreyView image,
                 const corners::CornerSettings& settings, PreparedView& view)
{
    view.features = detector.detect(image, settings);
    view.index.assign(view.features);
    detector.smoothLevel(0, view.full);
    detector.smoothLevel(2, view.half);
    steepestPixels(view.full.view(), view.support);
    view.minCorrelation = minCorrelationOf(image);
}

void prepareView(grey::GreyView image, std::vector<corners::CornerFeature> features, PreparedView& view)
{
    view.features = std::move(features);
    view.index.assign(view.features);
    grey::GreyImage small;
    if (image.width > 0 && image.height > 0) grey::binomial5(image, view.full);
    if (image.width > 1 && image.height > 1) {
        grey::halve(image, small);
        grey::binomial5(small.view(), view.half);
    }
    steepestPixels(view.full.view(), view.support);
    view.minCorrelation = minCorrelationOf(image);
}

void alignByEdges(const edges::Polylines& lines, PreparedView& view)
{
    grey::GreyImage ridges, small;
    drawRidges(lines, view.full.width, view.full.height, ridges);
    if (ridges.width > 1 && ridges.height > 1) {
        grey::binomial5(ridges.view(), view.full);
        grey::halve(ridges.view(), small);
        grey::binomial5(small.view(), view.half);
    }
    steepestPixels(view.full.view(), view.support);
    view.minCorrelation = kMinEdgeCorrelation;
}

bool isInlier(const Match& match, const PreparedView& first, const PreparedView& second,
              const Eigen::Matrix3d& motion)
{
    const corners::CornerFeature& a = first.features[match.first];
    const corners::CornerFeature& b = second.features[match.second];
    const Eigen::Vector2d at = transformed(motion, {double(a.x), double(a.y)});
    return (at - Eigen::Vector2d(double(b.x), double(b.y))).norm() < 2 * double(std::max(a.size, b.size));
}

void registerViews(const PreparedView& first, const PreparedView& second, MotionModel model,
                   Registration& result, Scratch scratch, const Eigen::Matrix3d* initial)
{
    result = Registration{.matches = std::move(result.matches)};
    matchFeatures(first.index, second.index, 90, result.matches, scratch);
    const auto pairs = pairsOf(result.matches, first, second, scratch);
    MotionEstimate rough = estimateMotion(pairs, model, first.full.width, first.full.height, 1, scratch);
    if (initial != nullptr) {
        const int inliers = countInliers(result.matches, first, second, *initial);
        const bool isBetter =
            rough.inliers == 0 || inliers >= countInliers(result.matches, first, second, rough.motion);
        if (isBetter) rough = {.motion = *initial, .inliers = inliers};
    }
    if (rough.inliers < kMinInliers) return;

    std::pmr::vector<SupportPoint> coarse(scratch);
    coarse.reserve(first.support.size());
    for (const SupportPoint& p : first.support)
        if (p.x / 2 < float(first.half.width - 1) && p.y / 2 < float(first.half.height - 1))
            coarse.push_back({std::floor(p.x / 2), std::floor(p.y / 2)});
    const Alignment atHalf = alignMotion(first.half.view(), second.half.view(), coarse, model,
                                         halved(rough.motion), kMaxSteps, scratch);
    const Alignment fine = alignMotion(first.full.view(), second.full.view(), first.support, model,
                                       doubled(atHalf.motion), kMaxSteps, scratch);
    if (fine.correlation < std::min(first.minCorrelation, second.minCorrelation) ||
        fine.deviation > kMaxDeviation)
        return;
    const Eigen::Matrix3d motion = fine.motion / fine.motion(2, 2);
    const int inliers = countInliers(result.matches, first, second, motion);
    if (inliers < kMinInliers) return;
    result.motion = motion;
    result.inliers = inliers;
    result.correlation = fine.correlation;
    result.deviation = fine.deviation;
}

}  // namespace scansteps::registration
