// Registration of two views: matching, robust estimation, alignment at two sizes, and checks of the result.
#include "registration/register_views.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "grey/grey_filters.h"
#include "registration/draw_ridges.h"

namespace scansteps::registration {
namespace {

constexpr int kMinInliers = 10;
constexpr int kMaxSteps = 20;  // of each alignment
constexpr double kMaxDeviation = 1;
constexpr double kMinPhotoCorrelation = 0.75;
constexpr double kMinEdgeCorrelation = 0.5;  // for drawn edges, which differ from view to view
constexpr int kMaxPatches = 1000;
constexpr int kMinAgreeing = 8;           // patches
constexpr double kMinAgreement = 0.15;    // share of the visible patches
constexpr double kMaxRicherShift = 2;     // pixels
constexpr double kMaxRicherGain = 60;     // of squared residuals, in units of their variance
constexpr int kLargeFrame = 1000 * 1000;  // pixels

// How far apart matching features may lie, in units of two pixels: those of coarse levels are located to a
// smaller part of their size.
double uncertaintyOf(const corners::CornerFeature& a, const corners::CornerFeature& b)
{
    return 0.5 + 0.5 * double(std::max(a.size, b.size));
}

std::pmr::vector<PointPair> pairsOf(const std::vector<Match>& matches, const PreparedView& first,
                                    const PreparedView& second, Scratch scratch)
{
    std::pmr::vector<PointPair> pairs(scratch);
    pairs.reserve(matches.size());
    for (const Match& m : matches) {
        const corners::CornerFeature& a = first.features[m.first];
        const corners::CornerFeature& b = second.features[m.second];
        pairs.push_back({double(a.x), double(a.y), double(b.x), double(b.y), uncertaintyOf(a, b)});
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

// The steepest pixel of a square, or -1, -1 when there is no gradient of two grey levels per pixel.
SupportPoint steepestPixel(grey::GreyView image, int left, int top, int side)
{
    int best = 4 * 2 * 2;  // for squared differences of samples two pixels apart
    SupportPoint at{-1, -1};
    for (int y = std::max(top, 1); y < std::min(top + side, image.height - 1); ++y) {
        const std::uint8_t* row = image.row(y);
        for (int x = std::max(left, 1); x < std::min(left + side, image.width - 1); ++x) {
            const int dx = row[x + 1] - row[x - 1];
            const int dy = row[x + image.stride] - row[x - image.stride];
            if (dx * dx + dy * dy <= best) continue;
            best = dx * dx + dy * dy;
            at = {float(x), float(y)};
        }
    }
    return at;
}

// Cuts a patch in each cell of a grid: around the strongest of the features, or else around the steepest
// pixel.
void cutAllPatches(PreparedView& view, std::span<const corners::CornerFeature> features)
{
    const int width = view.full.width, height = view.full.height;
    const int cell = std::max(16, int(std::ceil(std::sqrt(double(width) * height / kMaxPatches))));
    const int across = width / cell + 1;
    std::vector<bool>& taken = view.taken;
    std::vector<SupportPoint>& points = view.points;
    taken.assign(std::size_t(across) * std::size_t(height / cell + 1), false);
    points.clear();
    for (const corners::CornerFeature& f : features) {
        if (!(f.x >= 0 && f.y >= 0 && f.x < float(width) && f.y < float(height))) continue;
        const auto at = std::size_t(int(f.y) / cell * across + int(f.x) / cell);
        if (!taken[at]) points.push_back({std::round(f.x), std::round(f.y)});
        taken[at] = true;
    }
    for (int top = 0; top < height; top += cell)
        for (int left = 0; left < width; left += cell) {
            if (taken[std::size_t(top / cell * across + left / cell)]) continue;
            const SupportPoint p = steepestPixel(view.half.view(), left / 2, top / 2, cell / 2);
            if (p.x >= 0) points.push_back({2 * p.x + 1, 2 * p.y + 1});
        }
    cutPatches(view.full.view(), points, view.patches);
    for (SupportPoint& p : points) p = {std::floor(p.x / 2), std::floor(p.y / 2)};
    cutPatches(view.half.view(), points, view.coarsePatches);
}

}  // namespace

corners::CornerSettings registrationCorners(int count)
{
    corners::CornerSettings settings;
    settings.smooth = true;
    settings.gradients = true;
    settings.levels = 7;
    settings.firstLevel = 2;
    settings.sizeExponent = 0;
    settings.threshold = 6;
    settings.strong = 14;  // sensor noise of five levels does not make such a corner
    settings.count = std::size_t(std::max(count, 1));
    settings.few = settings.count / 10;
    return settings;
}

void prepareView(corners::CornerDetector& detector, grey::GreyView image,
                 const corners::CornerSettings& settings, PreparedView& view)
{
    if (std::int64_t{image.width} * image.height >= kLargeFrame) {
        grey::halve(image, view.small);
        grey::binomial5(image, view.full);
        view.features = detector.detect(view.small.view(), settings);
        detector.smoothLevel(0, view.half);
        for (corners::CornerFeature& f : view.features)
            f.x = 2 * f.x + 0.5F, f.y = 2 * f.y + 0.5F, f.size *= 2, f.level += 2;
    } else {
        view.features = detector.detect(image, settings);
        detector.smoothLevel(0, view.full);
        detector.smoothLevel(2, view.half);
    }
    view.index.assign(view.features);
    cutAllPatches(view, view.features);
    view.minCorrelation = minCorrelationOf(image);
}

void prepareView(grey::GreyView image, std::vector<corners::CornerFeature> features, PreparedView& view)
{
    view.features = std::move(features);
    view.index.assign(view.features);
    if (image.width > 0 && image.height > 0) grey::binomial5(image, view.full);
    if (image.width > 1 && image.height > 1) {
        grey::halve(image, view.small);
        grey::binomial5(view.small.view(), view.half);
    }
    cutAllPatches(view, view.features);
    view.minCorrelation = minCorrelationOf(image);
}

void alignByEdges(const edges::Polylines& lines, PreparedView& view)
{
    grey::GreyImage ridges;
    drawRidges(lines, view.full.width, view.full.height, ridges);
    if (ridges.width > 1 && ridges.height > 1) {
        grey::binomial5(ridges.view(), view.full);
        grey::halve(ridges.view(), view.small);
        grey::binomial5(view.small.view(), view.half);
    }
    cutAllPatches(view, {});
    view.minCorrelation = kMinEdgeCorrelation;
}

bool isInlier(const Match& match, const PreparedView& first, const PreparedView& second,
              const Eigen::Matrix3d& motion)
{
    const corners::CornerFeature& a = first.features[match.first];
    const corners::CornerFeature& b = second.features[match.second];
    const Eigen::Vector2d at = transformed(motion, {double(a.x), double(a.y)});
    return (at - Eigen::Vector2d(double(b.x), double(b.y))).norm() < 2 * uncertaintyOf(a, b);
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

    const double minCorrelation = std::min(first.minCorrelation, second.minCorrelation);
    Alignment best = alignMotion(first.coarsePatches, second.half.view(), model, halved(rough.motion),
                                 minCorrelation, kMaxSteps, scratch);
    best.motion = doubled(best.motion);
    best.deviation *= 2;
    const Alignment fine = alignMotion(first.patches, second.full.view(), model, best.motion, minCorrelation,
                                       kMaxSteps, scratch);
    if (fine.deviation < best.deviation) best = fine;
    const double agreement = double(best.agreeing) / std::max(best.visible, 1);
    const bool isOutsideModel = rough.richerShift > kMaxRicherShift && rough.richerGain > kMaxRicherGain;
    if (isOutsideModel) return;
    if (best.agreeing < kMinAgreeing || agreement < kMinAgreement || best.deviation > kMaxDeviation) return;
    Eigen::Matrix3d motion = best.motion / best.motion(2, 2);
    int inliers = countInliers(result.matches, first, second, motion);
    const int before = countInliers(result.matches, first, second, rough.motion);
    const bool isWorse = inliers < 0.9 * before || rough.deviation < best.deviation;
    if (isWorse && rough.deviation < kMaxDeviation) {
        motion = rough.motion;
        inliers = before;
        best.deviation = rough.deviation;
    }
    if (inliers < kMinInliers) return;
    result.motion = motion;
    result.inliers = inliers;
    result.agreement = agreement;
    result.deviation = best.deviation;
}

}  // namespace scansteps::registration
