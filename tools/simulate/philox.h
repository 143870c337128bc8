// Random numbers as a function of a counter and a key, so that a picture does not depend on the order in
// which its pixels are computed: Philox4x32-10 of Salmon, Moraes, Dror, Shaw, "Parallel random numbers: as
// easy as 1, 2, 3" (2011).
#pragma once

#include <array>
#include <cmath>
#include <cstdint>
#include <numbers>

namespace scansteps::simulate {

using PhiloxCounter = std::array<std::uint32_t, 4>;
using PhiloxKey = std::array<std::uint32_t, 2>;

/// Four independent uniform words for each counter and key.
inline PhiloxCounter philox(PhiloxCounter counter, PhiloxKey key)
{
    for (int round = 0; round < 10; ++round) {
        const std::uint64_t a = std::uint64_t{0xD2511F53} * counter[0];
        const std::uint64_t b = std::uint64_t{0xCD9E8D57} * counter[2];
        counter = {static_cast<std::uint32_t>(b >> 32U) ^ counter[1] ^ key[0], static_cast<std::uint32_t>(b),
                   static_cast<std::uint32_t>(a >> 32U) ^ counter[3] ^ key[1], static_cast<std::uint32_t>(a)};
        key[0] += 0x9E3779B9U;
        key[1] += 0xBB67AE85U;
    }
    return counter;
}

/// Uniform in (0, 1): the middle of one of 2^32 intervals.
inline double uniform(std::uint32_t word)
{
    return (static_cast<double>(word) + 0.5) * 0x1p-32;
}

/// Two independent normal deviates of mean 0 and variance 1 from two words (Box and Muller).
inline std::array<double, 2> normalPair(std::uint32_t a, std::uint32_t b)
{
    const double radius = std::sqrt(-2 * std::log(uniform(a)));
    const double angle = 2 * std::numbers::pi * uniform(b);
    return {radius * std::cos(angle), radius * std::sin(angle)};
}

}  // namespace scansteps::simulate
