// Formats numbers like an output stream with default settings, but with tables and integer arithmetic; with
// std::to_chars an OBJ file takes 2.7 times as long. Every function writes to `out`, may overwrite up to
// kNumberRoom bytes, and returns the end of the text.
#pragma once

#include <array>
#include <bit>
#include <cstdint>
#include <cstring>

namespace scansteps::mesh::text {

/// Buffer space required by each of the functions below.
inline constexpr int kNumberRoom = 32;

namespace detail {

/// Three digits and, in the fourth byte, the number of trailing zeros.
using Digits3 = std::array<std::array<char, 4>, 1000>;

constexpr Digits3 makeDigits3()
{
    Digits3 table{};
    for (int n = 0; n < 1000; ++n) {
        const int zeros = n == 0 ? 3 : n % 100 == 0 ? 2 : n % 10 == 0 ? 1 : 0;
        table[static_cast<std::size_t>(n)] = {static_cast<char>('0' + n / 100),
                                              static_cast<char>('0' + n / 10 % 10),
                                              static_cast<char>('0' + n % 10), static_cast<char>(zeros)};
    }
    return table;
}

inline constexpr Digits3 kDigits3 = makeDigits3();

/// Up to three digits without leading zeros and, in the fourth byte, their number.
constexpr Digits3 makeShort3()
{
    Digits3 table{};
    for (int n = 0; n < 1000; ++n) {
        const int count = n < 10 ? 1 : n < 100 ? 2 : 3;
        auto& entry = table[static_cast<std::size_t>(n)];
        for (int rest = n, i = count; i-- > 0; rest /= 10)
            entry[static_cast<std::size_t>(i)] = static_cast<char>('0' + rest % 10);
        entry[3] = static_cast<char>(count);
    }
    return table;
}

inline constexpr Digits3 kShort3 = makeShort3();

/// The three digits of an entry as an integer, in memory order.
inline std::uint32_t lowBytes(const std::array<char, 4>& entry)
{
    static_assert(std::endian::native == std::endian::little);
    return std::bit_cast<std::uint32_t>(entry) & 0x00FFFFFFU;
}

inline char* put3(char* out, std::uint32_t n)
{
    std::memcpy(out, kDigits3[n].data(), 4);
    return out + 3;
}

inline char* putShort3(char* out, std::uint32_t n)
{
    std::memcpy(out, kShort3[n].data(), 4);
    return out + kShort3[n][3];
}

/// Writes `n` (100000 to 999999) / 10^`decimals` (0 to 10) without trailing zeros.
inline char* putSixDigits(char* out, std::uint32_t n, int decimals)
{
    const auto& high = kDigits3[n / 1000];
    const auto& low = kDigits3[n % 1000];
    const int zeros = low[3] < 3 ? low[3] : 3 + high[3];
    // All six digits stay in a register: reloading them from memory would stall on the stores.
    const std::uint64_t digits = lowBytes(high) | std::uint64_t{lowBytes(low)} << 24;
    if (decimals < 6) {
        const int whole = 6 - decimals;
        const std::uint64_t tail = (digits >> 8 * whole) << 8 | '.';
        std::memcpy(out, &digits, 8);
        std::memcpy(out + whole, &tail, 8);
        return zeros >= decimals ? out + whole : out + 7 - zeros;
    }
    std::memcpy(out, "0.00000", 8);
    out += 2 + decimals - 6;
    std::memcpy(out, &digits, 8);
    return out + 6 - zeros;
}

/// Rounds `n` ten-thousandths, more than six significant digits, to six, as a stream rounds the double
/// n * 0.0001.
std::uint32_t roundToSixDigits(std::uint32_t n);

/// Handles numbers outside the fast path of putGeneral.
char* putGeneralSlowly(char* out, double value);

}  // namespace detail

/// Writes `n` in decimal.
inline char* putUnsigned(char* out, std::uint32_t n)
{
    using namespace detail;
    if (n < 1000) return putShort3(out, n);
    const std::uint32_t thousands = n / 1000;
    if (n < 1000000) {
        out = putShort3(out, thousands);
    } else {
        const std::uint32_t millions = thousands / 1000;
        if (n < 1000000000) {
            out = putShort3(out, millions);
        } else {
            out = putShort3(out, millions / 1000);
            out = put3(out, millions % 1000);
        }
        out = put3(out, thousands % 1000);
    }
    return put3(out, n % 1000);
}

/// Writes the double `n` * 0.0001 with six significant digits, never in exponent form.
inline char* putTenThousandths(char* out, std::int32_t n)
{
    std::uint32_t magnitude = static_cast<std::uint32_t>(n);
    if (n < 0) {
        *out++ = '-';
        magnitude = 0U - magnitude;
    }
    if (magnitude >= 1000000) magnitude = detail::roundToSixDigits(magnitude);
    out = putUnsigned(out, magnitude / 10000);
    const std::uint32_t fraction = magnitude % 10000;
    if (fraction == 0) return out;
    const std::uint32_t tail = fraction % 1000;
    out[0] = '.';
    out[1] = static_cast<char>('0' + fraction / 1000);
    std::memcpy(out + 2, detail::kDigits3[tail].data(), 4);
    return out + 5 - detail::kDigits3[tail][3];
}

/// Writes `value` with six significant digits in the shorter of fixed and exponent form ("%g").
char* putGeneral(char* out, double value);

}  // namespace scansteps::mesh::text
