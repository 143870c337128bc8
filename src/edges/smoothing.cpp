// Estimates noise robustly, and filters with sampled Gaussians.
#include "edges/smoothing.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <memory_resource>

#include "edges/canny.h"

namespace scansteps::edges {

double noiseOf(const FloatPlane& plane, Scratch scratch)
{
    std::pmr::vector<float> responses(scratch);
    responses.reserve((std::size_t{plane.width()} / 4 + 1) * (std::size_t{plane.height()} / 4 + 1));
    for (std::size_t y = 1; y + 1 < plane.height(); y += 4) {
        const float *above = plane.row(y - 1), *here = plane.row(y), *below = plane.row(y + 1);
        for (std::size_t x = 1; x + 1 < plane.width(); x += 4) {
            const float corners = above[x - 1] + above[x + 1] + below[x - 1] + below[x + 1];
            const float sides = above[x] + below[x] + here[x - 1] + here[x + 1];
            responses.push_back(std::abs(corners - 2 * sides + 4 * here[x]));
        }
    }
    if (responses.empty()) return 0;
    const auto middle = responses.begin() + std::ptrdiff_t(responses.size() / 2);
    std::nth_element(responses.begin(), middle, responses.end());
    return double(*middle) / (0.6745 * 6);  // the kernel's norm is 6
}

double smoothingFor(double noise)
{
    return noise < 1 ? 0 : std::min(0.7 + 0.05 * noise, 1.5);
}

void gaussian(FloatPlane& plane, double sigma, Scratch scratch)
{
    if (!(sigma > 0)) return;
    std::array<float, 141> taps{};
    const int reach = int(std::ceil(3.5 * std::min(sigma, 20.0)));
    double sum = 0;
    for (int i = -reach; i <= reach; ++i) sum += std::exp(-i * i / (2 * sigma * sigma));
    for (int i = -reach; i <= reach; ++i)
        taps[std::size_t(i + reach)] = float(std::exp(-i * i / (2 * sigma * sigma)) / sum);
    const std::span<const float> kernel(taps.data(), std::size_t(2 * reach + 1));
    sepFilter(plane, plane, kernel, kernel, scratch);
}

}  // namespace scansteps::edges
