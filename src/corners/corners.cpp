// Builds the pyramid, finds corners on each level, selects by buckets and describes what is kept.
#include "corners/corners.h"

#include <algorithm>
#include <cmath>

#include "corners/gradient_descriptor.h"
#include "grey/grey_filters.h"

namespace scansteps::corners {
namespace {

constexpr int kMargin = kDescriptorRadius + 1;

constexpr int kSpreadDensity = 32;     // features per bucket when a number of features is given
constexpr int kMinSearchedSide = 160;  // pixels of the first level, unless that is level 0
static_assert(kMargin >= kGradientMargin);

struct Offset
{
    float x, y;
};

// Maximum of the paraboloid fitted to the 3 × 3 responses around a peak, relative to it; at most half a
// pixel.
Offset summit(const float* p, std::ptrdiff_t stride)
{
    const float* a = p - stride;
    const float* b = p + stride;
    const float dx = (a[1] + p[1] + b[1] - a[-1] - p[-1] - b[-1]) / 6;
    const float dy = (b[-1] + b[0] + b[1] - a[-1] - a[0] - a[1]) / 6;
    const float columns = a[0] + p[0] + b[0];
    const float rows = p[-1] + p[0] + p[1];
    const float all = a[-1] + a[0] + a[1] + rows + b[-1] + b[0] + b[1];
    const float dxx = (all - 3 * columns) / 3;
    const float dyy = (all - 3 * rows) / 3;
    const float dxy = (a[-1] + b[1] - a[1] - b[-1]) / 4;
    const float determinant = dxx * dyy - dxy * dxy;
    if (!(determinant > 0) || !(dxx < 0)) return {0, 0};
    const float x = (dxy * dy - dyy * dx) / determinant;
    const float y = (dxy * dx - dxx * dy) / determinant;
    return {std::clamp(x, -0.5F, 0.5F), std::clamp(y, -0.5F, 0.5F)};
}

}  // namespace

const std::vector<CornerFeature>& CornerDetector::detect(grey::GreyView image, const CornerSettings& settings)
{
    buildLevels(image, std::max(settings.levels, 1));
    found_.clear();
    auto first = std::min(std::size_t(std::max(settings.firstLevel, 0)), used_);
    while (first > 0 && (first >= used_ ||
                         std::min(levels_[first].view.width, levels_[first].view.height) < kMinSearchedSide))
        --first;
    for (std::size_t level = first; level < used_; ++level) findOnLevel(std::uint32_t(level), settings);
    select(image, settings);
    describeKept(settings);
    return described_;
}

void CornerDetector::describeKept(const CornerSettings& settings)
{
    described_.clear();
    for (CornerFeature& f : kept_) {
        const grey::GreyView smooth = levels_[f.level].smooth.view();
        const float x = (f.x + 0.5F) / f.size - 0.5F;
        const float y = (f.y + 0.5F) / f.size - 0.5F;
        if (!settings.gradients) {
            f.angle = orientationOf(smooth, int(x + 0.5F), int(y + 0.5F));
            f.bits = describe(smooth, x, y, f.angle, settings.fast);
            described_.push_back(f);
            continue;
        }
        const Orientations found = gradientOrientations(smooth, x, y);
        for (int i = 0; i < found.count; ++i) {
            f.angle = found.angle[std::size_t(i)];
            f.bits = describeGradients(smooth, x, y, f.angle);
            described_.push_back(f);
        }
    }
}

void CornerDetector::buildLevels(grey::GreyView image, int count)
{
    levels_.resize(std::size_t(count));
    for (used_ = 0; used_ < levels_.size(); ++used_) {
        Level& level = levels_[used_];
        if (used_ == 0) {
            level.view = image;
        } else if (used_ == 1) {
            grey::twoThirds(image, level.image, memory_.get());
            level.view = level.image.view();
            level.size = 1.5F;
        } else {
            grey::halve(levels_[used_ - 2].view, level.image);
            level.view = level.image.view();
            level.size = 2 * levels_[used_ - 2].size;
        }
        if (level.view.width <= 2 * kMargin || level.view.height <= 2 * kMargin) break;
        grey::binomial5(level.view, level.smooth, memory_.get());
    }
}

void CornerDetector::findOnLevel(std::uint32_t level, const CornerSettings& settings)
{
    const bool blobs = settings.kind == CornerKind::hessian;
    const grey::GreyView view = blobs || settings.smooth ? levels_[level].smooth.view() : levels_[level].view;
    const float size = levels_[level].size;
    const float gain = blobs ? 1.0F : std::pow(size, settings.sizeExponent);
    response_.resize(std::size_t(view.width) * std::size_t(view.height));
    cornerResponse(view, {settings.kind, settings.lowPass1, settings.lowPass2}, response_, memory_.get());
    findPeaks(response_, view.width, view.height, kMargin,
              responseOf(settings.kind, settings.threshold / gain), peaks_);
    for (const Peak& peak : peaks_) {
        const Offset o = summit(response_.data() + std::ptrdiff_t{peak.y} * view.width + peak.x, view.width);
        found_.push_back({(float(peak.x) + o.x + 0.5F) * size - 0.5F,
                          (float(peak.y) + o.y + 0.5F) * size - 0.5F,
                          gain * scoreOf(settings.kind, peak.value),
                          0,
                          size,
                          level,
                          {}});
    }
}

void CornerDetector::select(grey::GreyView image, const CornerSettings& settings)
{
    struct Key
    {
        float score;
        std::uint32_t index;
    };
    std::pmr::vector<Key> order(memory_.get());
    order.reserve(found_.size());
    for (std::uint32_t i = 0; i < found_.size(); ++i) order.push_back({found_[i].score, i});
    std::sort(order.begin(), order.end(), [](const Key& a, const Key& b) {
        return a.score > b.score || (a.score == b.score && a.index < b.index);
    });
    // with a count, buckets of which half would hold it, as there are places without features
    const double area = double(image.width) * image.height;
    const int density = settings.count == 0 ? settings.density : kSpreadDensity;
    const int side = settings.count == 0
                         ? kBucketSize
                         : std::max(int(std::sqrt(area * kSpreadDensity / 2 / double(settings.count))), 1);
    const std::size_t most = settings.count == 0 ? kMaxFeatures : std::min(settings.count, kMaxFeatures);
    const int across = (image.width + side - 1) / side;
    const int down = (image.height + side - 1) / side;
    std::pmr::vector<int> inBucket(std::size_t(across) * std::size_t(down), 0, memory_.get());
    kept_.clear();
    for (const Key& key : order) {
        const CornerFeature& f = found_[key.index];
        if (f.score < settings.strong && kept_.size() >= settings.few) break;
        if (settings.bucketing) {
            int& count = inBucket[std::size_t(int(f.y) / side * across + int(f.x) / side)];
            if (count >= density) continue;
            ++count;
        }
        kept_.push_back(f);
        if (kept_.size() == most) break;
    }
}

}  // namespace scansteps::corners
