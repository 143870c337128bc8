// Vectorised and scalar preparation of numbers.
#include "mesh/number_batch.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "mesh/number_batch.cpp"
#include "hwy/foreach_target.h"  // IWYU pragma: keep
#include "hwy/highway.h"

#ifndef SCANSTEPS_SIX_DIGITS
#define SCANSTEPS_SIX_DIGITS
namespace scansteps::mesh::text {

// Numbers from 10^(k - 3) up to the next power of ten have 8 - k decimals; smaller ones have nine.
inline constexpr double kFrom[9] = {1e-3, 1e-2, 1e-1, 1, 1e1, 1e2, 1e3, 1e4, 1e5};
inline constexpr double kScale[9] = {1e8, 1e7, 1e6, 1e5, 1e4, 1e3, 1e2, 1e1, 1};
// The error of the scaled number is below 1e-10.
inline constexpr double kFarthest = 0.5 - 1e-9;
// Adding this rounds a number to an integer, because the sum has no bits for a fraction.
inline constexpr double kWhole = 0x1p52;

}  // namespace scansteps::mesh::text
#endif

HWY_BEFORE_NAMESPACE();
namespace scansteps::mesh::text {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

// Returns the number of values processed.
std::size_t PrepareNumbers(const double* HWY_RESTRICT values, PreparedNumber* HWY_RESTRICT prepared,
                           std::size_t count)
{
    const hn::ScalableTag<double> d;
    const hn::RebindToUnsigned<decltype(d)> du;
    const auto whole = hn::Set(d, kWhole);
    const std::size_t lanes = hn::Lanes(d);
    std::size_t i = 0;
    for (; i + lanes <= count; i += lanes) {
        const auto value = hn::LoadU(d, values + i);
        const auto magnitude = hn::Abs(value);
        auto scale = hn::Set(d, 1e9);
        auto decimals = hn::Set(du, 9);
        for (std::size_t k = 0; k < 9; ++k) {
            const auto reached = hn::Ge(magnitude, hn::Set(d, kFrom[k]));
            scale = hn::IfThenElse(reached, hn::Set(d, kScale[k]), scale);
            decimals = hn::Add(decimals, hn::BitCast(du, hn::VecFromMask(d, reached)));  // minus 1
        }
        const auto scaled = hn::Mul(magnitude, scale);
        const auto sum = hn::Add(scaled, whole);
        const auto error = hn::Abs(hn::Sub(hn::Sub(sum, whole), scaled));
        const auto digits = hn::Xor(hn::BitCast(du, sum), hn::BitCast(du, whole));
        const auto sound = hn::And(hn::RebindMask(du, hn::And(hn::Ge(magnitude, hn::Set(d, 1e-4)),
                                                              hn::Lt(error, hn::Set(d, kFarthest)))),
                                   hn::Lt(digits, hn::Set(du, 1000000)));
        const auto sign = hn::ShiftLeft<31>(hn::ShiftRight<63>(hn::BitCast(du, value)));
        const auto parts = hn::Or(hn::Or(digits, hn::ShiftLeft<20>(decimals)), sign);
        hn::StoreU(hn::IfThenElse(sound, parts, hn::Set(du, kNotPrepared)), du, prepared + i);
    }
    return i;
}

}  // namespace HWY_NAMESPACE
}  // namespace scansteps::mesh::text
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace scansteps::mesh::text {

HWY_EXPORT(PrepareNumbers);

void prepareNumbers(std::span<const double> values, std::span<PreparedNumber> prepared)
{
    const std::size_t count = std::min(values.size(), prepared.size());
    const std::size_t done = HWY_DYNAMIC_DISPATCH(PrepareNumbers)(values.data(), prepared.data(), count);
    scalar::prepareNumbers(values.subspan(done), prepared.subspan(done));
}

namespace scalar {

void prepareNumbers(std::span<const double> values, std::span<PreparedNumber> prepared)
{
    for (std::size_t i = 0; i < std::min(values.size(), prepared.size()); ++i) {
        const double magnitude = std::fabs(values[i]);
        const auto decade = static_cast<std::size_t>(std::upper_bound(kFrom, kFrom + 9, magnitude) - kFrom);
        const double scaled = magnitude * (decade == 0 ? 1e9 : kScale[decade - 1]);
        const double digits = (scaled + kWhole) - kWhole;
        const bool sound = magnitude >= 1e-4 && digits < 1000000 && std::fabs(digits - scaled) < kFarthest;
        prepared[i] = sound ? static_cast<std::uint64_t>(digits) | (9 - decade) << 20 |
                                  std::uint64_t{std::signbit(values[i])} << 31
                            : kNotPrepared;
    }
}

}  // namespace scalar
}  // namespace scansteps::mesh::text
#endif
