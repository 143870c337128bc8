// Rounding of numbers to six significant digits, exactly where ties require it.
#include "mesh/number_format.h"

#include <bit>
#include <charconv>
#include <cmath>

namespace scansteps::mesh::text {

namespace {

/// A finite positive double as mantissa * 2^-scale.
struct Parts
{
    std::uint64_t mantissa;
    int scale;
};

Parts partsOf(double value)
{
    const std::uint64_t bits = std::bit_cast<std::uint64_t>(value);
    const int exponent = static_cast<int>(bits >> 52 & 0x7FF);
    return {(bits & ((1ULL << 52) - 1)) | 1ULL << 52, 1075 - exponent};
}

constexpr std::array<std::uint64_t, 11> kPowers = {
    1, 10, 100, 1000, 10000, 100000, 1000000, 10000000, 100000000, 1000000000, 10000000000};

/// Exact sign of value * factor - half / 2, provided that both are nearly equal: the difference then fits
/// 64 bits, so the terms may wrap.
std::int64_t compareExactly(double value, std::uint64_t factor, std::uint64_t half)
{
    const Parts parts = partsOf(value);
    const std::uint64_t shifted = parts.scale < 64 ? half << parts.scale : 0;
    return static_cast<std::int64_t>(parts.mantissa * factor * 2 - shifted);
}

bool roundsUp(std::int64_t aboveTie, std::uint32_t below)
{
    return aboveTie > 0 || (aboveTie == 0 && below % 2 != 0);
}

// Decimal exponent of the largest numbers below 1e6 with a given binary exponent, from 2^-14 (below 1e-4) to
// 2^19.
constexpr int kLowestBinade = -14;
constexpr std::array<std::int8_t, 34> makeDecades()
{
    std::array<std::int8_t, 34> table{};
    for (int b = 0; b < 34; ++b) {
        double above = 1;  // 2^(binade + 1)
        for (int i = 0; i < b + kLowestBinade + 1; ++i) above *= 2;
        for (int i = 0; i > b + kLowestBinade + 1; --i) above /= 2;
        int decade = -5;
        for (double power = 1e-4; power < above && decade < 5; power *= 10) ++decade;
        table[static_cast<std::size_t>(b)] = static_cast<std::int8_t>(decade);
    }
    return table;
}
constexpr auto kDecades = makeDecades();

/// The power of ten at which that decade begins.
constexpr std::array<double, 34> makeDecadeStarts()
{
    constexpr double kPower[] = {1e-5, 1e-4, 1e-3, 1e-2, 1e-1, 1, 1e1, 1e2, 1e3, 1e4, 1e5};
    std::array<double, 34> table{};
    for (std::size_t b = 0; b < 34; ++b) table[b] = kPower[kDecades[b] + 5];
    return table;
}
constexpr auto kDecadeStarts = makeDecadeStarts();

constexpr std::array<double, 11> kDoublePowers = {1, 1e1, 1e2, 1e3, 1e4, 1e5, 1e6, 1e7, 1e8, 1e9, 1e10};

}  // namespace

std::uint32_t detail::roundToSixDigits(std::uint32_t n)
{
    const std::uint32_t step = n < 10000000 ? 10 : n < 100000000 ? 100 : n < 1000000000 ? 1000 : 10000;
    const std::uint32_t below = n / step;
    const std::uint32_t rest = n % step;
    bool up = rest * 2 > step;
    if (rest * 2 == step)  // a tie of n: the rounding error of n * 0.0001 decides
        up = roundsUp(compareExactly(n * 0.0001, 10000, n * 2ULL), below);
    return (below + (up ? 1U : 0U)) * step;
}

char* detail::putGeneralSlowly(char* out, double value)
{
    if (value == 0) {
        std::memcpy(out, "-0", 2);
        return out + (std::signbit(value) ? 2 : (out[0] = '0', 1));
    }
    return std::to_chars(out, out + kNumberRoom, value, std::chars_format::general, 6).ptr;
}

char* putGeneral(char* out, double value)
{
    const double magnitude = std::fabs(value);
    if (!(magnitude >= 1e-4 && magnitude < 999999.5)) return detail::putGeneralSlowly(out, value);
    *out = '-';
    out += std::signbit(value) ? 1 : 0;
    const int binade = static_cast<int>(std::bit_cast<std::uint64_t>(magnitude) >> 52) - 1023;
    const auto row = static_cast<std::size_t>(binade - kLowestBinade);
    // Branch-free, because a model's coordinates lie on both sides of a power of ten. Powers below 1 are
    // inexact; a number on the wrong side of one becomes 1000000 or 99999.99..., which gives the same text.
    int decimals = 5 - kDecades[row] + (magnitude < kDecadeStarts[row] ? 1 : 0);
    const double scaled = magnitude * kDoublePowers[static_cast<std::size_t>(decimals)];
    const double raised = scaled + 0.5;
    std::uint32_t n = static_cast<std::uint32_t>(raised);
    // The error of the sum is below 2e-10; closer to a tie, exact arithmetic is needed.
    const double aboveTie = raised - n;
    if (!(aboveTie > 1e-9 && aboveTie < 1 - 1e-9)) {
        n -= aboveTie < 0.5 ? 1U : 0U;  // the integer below the tie
        n += roundsUp(compareExactly(magnitude, kPowers[static_cast<std::size_t>(decimals)], n * 2ULL + 1), n)
                 ? 1U
                 : 0U;
    }
    if (n == 1000000) {  // rounded up to the next decade
        n = 100000;
        --decimals;
    }
    return detail::putSixDigits(out, n, decimals);
}

}  // namespace scansteps::mesh::text
