// The six significant digits of many numbers at a time: the arithmetic of text_format's putGeneral, apart
// from the putting. For writers of long lists of coordinates.
#pragma once

#include <cstdint>
#include <span>

#include "mesh/number_format.h"

namespace scansteps::mesh::text {

/// A number as |value| = digits / 10^decimals, rounded: bits 0 to 19 the digits (100000 to 999999), 20 to 23
/// the decimals (0 to 9), bit 31 the sign; or kNotPrepared.
using PreparedNumber = std::uint64_t;
inline constexpr PreparedNumber kNotPrepared = 1U << 30;

/// Prepares every value from 0.0001 to 999999 that is not so near to a tie of its seventh digit that only
/// exact arithmetic could round it; the others become kNotPrepared. Both spans have the same length.
void prepareNumbers(std::span<const double> values, std::span<PreparedNumber> prepared);

/// The text that putGeneral writes for `value`, which has been prepared.
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
