// The noise of a series, from the sums of bit pictures and their inverses.
#include <algorithm>
#include <cmath>

#include "gray_decode.h"

namespace scansteps::scan {
namespace {

struct Residual
{
    float level, value;  // mean of white and black; bit + inverse - white - black; grey levels
};

std::vector<Residual> residualsOf(const CodedPictures& pictures, std::size_t count)
{
    constexpr std::size_t kMaxPixels = 20000;
    constexpr float kLit = 10;
    std::vector<Residual> residuals;
    const std::size_t stride = std::max<std::size_t>(1, count / kMaxPixels) | 1U;
    for (std::size_t i = 0; i < count; i += stride) {
        const int white = pictures.white[i], black = pictures.black[i];
        // Clipping at either end hides noise.
        if (float(white - black) < kLit * kSampleScale || float(white) > 250 * kSampleScale || black <= 0)
            continue;
        for (std::size_t b = 0; b < pictures.bits.size(); ++b)
            residuals.push_back(
                {float(white + black) / (2 * kSampleScale),
                 float(pictures.bits[b][i] + pictures.inverses[b][i] - white - black) / kSampleScale});
    }
    return residuals;
}

// Variance of the values without their tails; four samples add up in each value.
double varianceOf(std::span<Residual> residuals)
{
    std::vector<float> sizes;
    for (const Residual& residual : residuals) sizes.push_back(std::abs(residual.value));
    const auto middle = sizes.begin() + static_cast<std::ptrdiff_t>(sizes.size() / 2);
    std::ranges::nth_element(sizes, middle);
    const float limit = 4 * 1.4826F * std::max(*middle, 0.5F);
    double sum = 0;
    std::size_t count = 0;
    for (const float size : sizes)
        if (size <= limit) {
            sum += double(size) * size;
            ++count;
        }
    return sum / (4 * double(count));
}

}  // namespace

NoiseModel estimateNoise(const CodedPictures& pictures, std::size_t count)
{
    constexpr std::size_t kBins = 8, kLeast = 800;
    constexpr float kQuantisation = 1.0F / 12;  // of whole grey levels
    std::vector<Residual> residuals = residualsOf(pictures, count);
    if (residuals.size() < kLeast) return {};
    std::ranges::sort(residuals, {}, &Residual::level);
    double sx = 0, sy = 0, sxx = 0, sxy = 0;
    for (std::size_t bin = 0; bin < kBins; ++bin) {
        const std::size_t from = residuals.size() * bin / kBins, to = residuals.size() * (bin + 1) / kBins;
        const std::span<Residual> part(residuals.data() + from, to - from);
        const double x = part[part.size() / 2].level, y = varianceOf(part);
        sx += x;
        sy += y;
        sxx += x * x;
        sxy += x * y;
    }
    const double spread = kBins * sxx - sx * sx;
    // A slope needs different levels.
    const double slope = spread > 25.0 * kBins * kBins ? std::max(0.0, (kBins * sxy - sx * sy) / spread) : 0;
    const double constant = (sy - slope * sx) / kBins;
    return {std::max(static_cast<float>(constant), kQuantisation), static_cast<float>(slope)};
}

}  // namespace scansteps::scan
