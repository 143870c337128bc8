// The 8×8 integer inverse DCT of the baseline JPEG decoder. Its samples equal those of libjpeg's accurate
// integer method bit for bit (Loeffler, Ligtenberg and Moschytz, ICASSP 1989; 13-bit constants; columns
// before rows, with two fraction bits kept in between).
#pragma once

#include <cstdint>
#include <span>

namespace scansteps::jpeg {

/// Samples of whole blocks: each coefficient times its quantisation step (modulo 2^16), inverse DCT, 128
/// added, clamped to 0...255. `coefficients` holds blocks of 64 in natural (row-major) order, `quant` the 64
/// steps in the same order, and `samples` receives 64 per block. Never throws.
void inverseDct(std::span<const std::int16_t> coefficients, std::span<const std::int16_t, 64> quant,
                std::span<std::uint8_t> samples);

namespace scalar {
void inverseDct(std::span<const std::int16_t> coefficients, std::span<const std::int16_t, 64> quant,
                std::span<std::uint8_t> samples);
}  // namespace scalar

/// Position of a natural-order coefficient in paired order, which the vector code needs: the rows of a block
/// in pairs, (0,4) (2,6) (1,3) (5,7), with a column's two values side by side, and the columns in the order
/// 0 4 2 6 1 3 5 7. Eight positions fill one 128-bit block.
constexpr unsigned pairedPosition(unsigned natural)
{
    constexpr unsigned kPlace[8] = {0, 4, 2, 5, 1, 6, 3, 7};  // positions of 0 to 7 in 0 4 2 6 1 3 5 7
    const unsigned row = kPlace[natural / 8];
    const unsigned column = kPlace[natural % 8];
    return (row / 2 * 2 + column / 4) * 8 + (column % 4) * 2 + row % 2;
}

}  // namespace scansteps::jpeg
