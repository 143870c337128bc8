// Filter kernels, and the detector's thresholds.
#include "edges/filter_kernels.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "edges/canny.h"
#include "scansteps/error.h"

namespace scansteps::edges {

namespace {

void check(bool holds, const char* text, int line)
{
    if (!holds) failf("Assertion failed: %s, module mcanny, line %d", text, line);
}

std::vector<float> sobelKernel(int size, int order)
{
    check(size > order, "ksize > order", __LINE__);
    if (size == 1) return {1};
    if (size == 3 && order == 0) return {1, 2, 1};
    if (size == 3 && order == 1) return {-1, 0, 1};
    if (size == 3) return {1, -2, 1};
    std::vector<int> taps(static_cast<std::size_t>(size) + 1, 0);
    taps[0] = 1;
    for (int pass = 0; pass < size - order - 1; ++pass)
        for (std::size_t j = taps.size() - 1; j > 0; --j) taps[j] += taps[j - 1];
    for (int pass = 0; pass < order; ++pass) {
        for (std::size_t j = taps.size() - 1; j > 0; --j) taps[j] = taps[j - 1] - taps[j];
        taps[0] = -taps[0];
    }
    std::vector<float> kernel(static_cast<std::size_t>(size));
    std::transform(taps.begin(), taps.end() - 1, kernel.begin(),
                   [](int tap) { return static_cast<float>(tap); });
    return kernel;
}

}  // namespace

void getSobelKernels(std::vector<float>& kx, std::vector<float>& ky, int dx, int dy, int ksize)
{
    if (ksize % 2 == 0 || ksize > 31) fail("The kernel size must be odd and not larger than 31");
    check(dx >= 0 && dy >= 0 && dx + dy > 0, "dx >= 0 && dy >= 0 && dx+dy > 0", __LINE__);
    kx = sobelKernel(ksize == 1 && dx > 0 ? 3 : ksize, dx);
    ky = sobelKernel(ksize == 1 && dy > 0 ? 3 : ksize, dy);
}

FoldedKernel::FoldedKernel(std::span<const float> kernel, Scratch scratch) : terms(scratch)
{
    if (kernel.empty() || kernel.size() > 65535) fail("kernel length out of range");
    const int size = static_cast<int>(kernel.size()), radius = size / 2;
    const auto tap = [&](int k) { return kernel[static_cast<std::size_t>(radius + k)]; };
    bool even = size % 2 == 1, odd = size % 2 == 1;
    for (int k = 0; k <= size - 1 - radius; ++k) {
        even = even && tap(k) == tap(-k);
        odd = odd && tap(k) == -tap(-k);
    }
    if (even || odd) {
        if (tap(0) != 0) terms.push_back({0, 0, tap(0), Single});
        for (int k = 1; k <= radius; ++k)
            if (tap(k) != 0) terms.push_back({k, -k, tap(k), even ? Sum : Difference});
    } else {
        for (int k = -radius; k < size - radius; ++k)
            if (tap(k) != 0) terms.push_back({k, 0, tap(k), Single});
    }
    before = radius;
    after = size - 1 - radius;
}

float boxWeight(int size)
{
    if (size < 1 || size > 65535) fail("lowPass: size out of range");
    if (size == 3) return 0.11111111F;
    if (size == 5) return 0.04F;
    if (size == 7) return 0.020408165F;
    return static_cast<float>(1.0 / (static_cast<double>(size) * size));
}

std::int32_t saturatedInt(double value)
{
    if (std::isnan(value)) return 0;
    return static_cast<std::int32_t>(std::clamp(std::trunc(value), -2147483648.0, 2147483647.0));
}

CannyThresholds::CannyThresholds(double lowIn, double highIn, int aperture)
{
    if (lowIn > highIn) std::swap(lowIn, highIn);
    if (aperture % 2 == 0 || aperture < 3 || aperture > 7) fail("aperture_size wrong");
    low = saturatedInt(std::floor(lowIn));
    high = saturatedInt(std::floor(highIn));
}

}  // namespace scansteps::edges
