// Computes the six significant digits of many numbers at a time, for writers of long lists of coordinates:
// the arithmetic of number_format's putGeneral without the output.
#pragma once

#include <cstdint>
#include <span>

#include "mesh/number_format.h"

namespace scansteps::mesh::text {

/// |value| rounded to digits / 10^decimals: bits 0 to 19 are the digits (100000 to 999999), 20 to 23 the
/// decimals (0 to 9), bit 31 the sign; or kNotPrepared.
using PreparedNumber = std::uint64_t;
inline constexpr PreparedNumber kNotPrepared = 1U << 30;

/// Prepares every value from 0.0001 to 999999, except those so close to a rounding tie that they need exact
/// arithmetic; the others become kNotPrepared. Both spans have the same length.
void prepareNumbers(std::span<const double> values, std::span<PreparedNumber> prepared);

/// Writes the same text as putGeneral for `value`, given its prepared form.
inline char* putPrepared(char* out, PreparedNumber prepared, double value)
{
    if ((prepared & kNotPrepared) != 0) return putGeneral(out, value);
    *out = '-';
    out += prepared >> 31;
    return detail::putSixDigits(out, prepared & 0xFFFFF, static_cast<int>(prepared >> 20 & 15));
}

namespace scalar {
void prepareNumbers(std::span<const double> values, std::span<PreparedNumber> prepared);
}

}  // namespace scansteps::mesh::text
