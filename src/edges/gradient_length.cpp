// Lengths of gradients in vector code.
#include "edges/gradient_length.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "edges/gradient_length.cpp"
#include "hwy/foreach_target.h"  // IWYU pragma: keep
#include "hwy/highway.h"

HWY_BEFORE_NAMESPACE();
namespace scansteps::edges {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

// Returns how many samples are done; the caller does the rest.
std::size_t GradientLengths(const float* dx, const float* dy, float factor, float limit, float* out,
                            std::size_t count)
{
    const hn::ScalableTag<float> d;
    const auto by = hn::Set(d, factor);
    const auto highest = hn::Set(d, limit);
    std::size_t i = 0;
    for (; i + hn::Lanes(d) <= count; i += hn::Lanes(d)) {
        const auto x = hn::LoadU(d, dx + i);
        const auto y = hn::LoadU(d, dy + i);
        const auto length = hn::Mul(hn::Sqrt(hn::Add(hn::Mul(x, x), hn::Mul(y, y))), by);
        hn::StoreU(hn::IfThenElse(hn::Lt(length, highest), length, highest), d, out + i);
    }
    return i;
}

}  // namespace HWY_NAMESPACE
}  // namespace scansteps::edges
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace scansteps::edges {

HWY_EXPORT(GradientLengths);

void gradientLengths(std::span<const float> dx, std::span<const float> dy, float factor, float limit,
                     std::span<float> out)
{
    const std::size_t count = std::min({dx.size(), dy.size(), out.size()});
    const std::size_t done =
        HWY_DYNAMIC_DISPATCH(GradientLengths)(dx.data(), dy.data(), factor, limit, out.data(), count);
    scalar::gradientLengths(dx.subspan(done), dy.subspan(done), factor, limit, out.subspan(done));
}

namespace scalar {

void gradientLengths(std::span<const float> dx, std::span<const float> dy, float factor, float limit,
                     std::span<float> out)
{
    for (std::size_t i = 0; i < std::min({dx.size(), dy.size(), out.size()}); ++i) {
        const float length = std::sqrt(dx[i] * dx[i] + dy[i] * dy[i]) * factor;
        out[i] = length < limit ? length : limit;
    }
}

}  // namespace scalar
}  // namespace scansteps::edges
#endif
