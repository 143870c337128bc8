// The vectorised inverse DCT; included once per instruction set. Each 128-bit part of a vector works on a
// block of its own.

#if defined(SCANSTEPS_JPEG_IDCT_INL_H_) == defined(HWY_TARGET_TOGGLE)
#ifdef SCANSTEPS_JPEG_IDCT_INL_H_
#undef SCANSTEPS_JPEG_IDCT_INL_H_
#else
#define SCANSTEPS_JPEG_IDCT_INL_H_
#endif

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "hwy/highway.h"

HWY_BEFORE_NAMESPACE();
namespace scansteps::jpeg {
namespace HWY_NAMESPACE {
namespace idct {
namespace hn = hwy::HWY_NAMESPACE;

using D16 = hn::CappedTag<std::int16_t, 32>;
using D32 = hn::Repartition<std::int32_t, D16>;
using DU8 = hn::Repartition<std::uint8_t, D16>;
using V16 = hn::Vec<D16>;
using V32 = hn::Vec<D32>;

/// Number of blocks per vector. These blocks form a group.
HWY_INLINE constexpr std::size_t GroupBlocks()
{
    return hn::MaxLanes(D16()) / 8;
}

constexpr int kConstBits = 13;
constexpr int kPassBits = 2;

/// a[2i] * lo + a[2i+1] * hi
HWY_INLINE V32 MulPairs(V16 pairs, int lo, int hi)
{
    const D32 d32;
    const V16 factors =
        hn::BitCast(D16(), hn::Set(d32, int((unsigned(hi) << 16U) | (unsigned(lo) & 0xFFFFU))));
    V32 sum1 = hn::Zero(d32);
    const V32 sum0 = hn::ReorderWidenMulAccumulate(d32, pairs, factors, hn::Zero(d32), sum1);
    return hn::RearrangeToOddPlusEven(sum0, sum1);
}

/// The eight-point transform of each pair of lanes in (0,4) (2,6) (1,3) (5,7); `round` is added before the
/// outputs are shifted. The factors are sums of the 13-bit constants of the reference algorithm, so that no
/// intermediate sum overflows 32 bits for any input.
template <int kShift>
HWY_INLINE void EightPoint(V16 p04, V16 p26, V16 p13, V16 p57, int round, V32 (&out)[8])
{
    const V32 rounding = hn::Set(D32(), round);
    const V32 sum = hn::Add(MulPairs(p04, 1 << kConstBits, 1 << kConstBits), rounding);
    const V32 difference = hn::Add(MulPairs(p04, 1 << kConstBits, -(1 << kConstBits)), rounding);
    const V32 even2 = MulPairs(p26, 4433, 4433 - 15137);
    const V32 even3 = MulPairs(p26, 4433 + 6270, 4433);
    const V32 e0 = hn::Add(sum, even3);
    const V32 e1 = hn::Add(difference, even2);
    const V32 e2 = hn::Sub(difference, even2);
    const V32 e3 = hn::Sub(sum, even3);

    constexpr int z1 = -7373, z2 = -20995, z3 = 9633 - 16069, z4 = 9633 - 3196, z5 = 9633;
    const V32 o0 = hn::Add(MulPairs(p13, z1 + z5, z3), MulPairs(p57, z5, 2446 + z1 + z3));
    const V32 o1 = hn::Add(MulPairs(p13, z4, z2 + z5), MulPairs(p57, 16819 + z2 + z4, z5));
    const V32 o2 = hn::Add(MulPairs(p13, z5, 25172 + z2 + z3), MulPairs(p57, z2 + z5, z3));
    const V32 o3 = hn::Add(MulPairs(p13, 12299 + z1 + z4, z5), MulPairs(p57, z4, z1 + z5));

    out[0] = hn::ShiftRight<kShift>(hn::Add(e0, o3));
    out[7] = hn::ShiftRight<kShift>(hn::Sub(e0, o3));
    out[1] = hn::ShiftRight<kShift>(hn::Add(e1, o2));
    out[6] = hn::ShiftRight<kShift>(hn::Sub(e1, o2));
    out[2] = hn::ShiftRight<kShift>(hn::Add(e2, o1));
    out[5] = hn::ShiftRight<kShift>(hn::Sub(e2, o1));
    out[3] = hn::ShiftRight<kShift>(hn::Add(e3, o0));
    out[4] = hn::ShiftRight<kShift>(hn::Sub(e3, o0));
}

/// Both halves of the pairs (lanes 0-3 and 4-7 of the result), narrowed to 16 bits with saturation.
template <int kShift>
HWY_INLINE void Pass(const V16 (&lower)[4], const V16 (&upper)[4], int round, V16 (&out)[8])
{
    V32 a[8];
    V32 b[8];
    EightPoint<kShift>(lower[0], lower[1], lower[2], lower[3], round, a);
    EightPoint<kShift>(upper[0], upper[1], upper[2], upper[3], round, b);
    for (int i = 0; i < 8; ++i) out[i] = hn::ReorderDemote2To(D16(), a[i], b[i]);
}

/// Transposes 4×4 matrices of 32-bit lanes within each 128-bit part.
HWY_INLINE void Transpose4(const V16* HWY_RESTRICT rows, V16 (&columns)[4])
{
    const D16 d;
    const D32 d32;
    const hn::Repartition<std::int64_t, D16> d64;
    const V32 r0 = hn::BitCast(d32, rows[0]);
    const V32 r1 = hn::BitCast(d32, rows[1]);
    const V32 r2 = hn::BitCast(d32, rows[2]);
    const V32 r3 = hn::BitCast(d32, rows[3]);
    const auto a = hn::BitCast(d64, hn::InterleaveLower(d32, r0, r1));
    const auto b = hn::BitCast(d64, hn::InterleaveLower(d32, r2, r3));
    const auto c = hn::BitCast(d64, hn::InterleaveUpper(d32, r0, r1));
    const auto e = hn::BitCast(d64, hn::InterleaveUpper(d32, r2, r3));
    columns[0] = hn::BitCast(d, hn::InterleaveLower(d64, a, b));
    columns[1] = hn::BitCast(d, hn::InterleaveUpper(d64, a, b));
    columns[2] = hn::BitCast(d, hn::InterleaveLower(d64, c, e));
    columns[3] = hn::BitCast(d, hn::InterleaveUpper(d64, c, e));
}

/// Converts columns of 16-bit samples to rows of bytes; row r of all blocks is stored at dst + r * stride.
HWY_INLINE void StoreColumns(V16 (&columns)[8], std::uint8_t* HWY_RESTRICT dst, std::size_t stride)
{
    const D16 d;
    const D32 d32;
    const hn::Repartition<std::int64_t, D16> d64;
    const hn::Half<DU8> half;
    const V16 zero = hn::Zero(d);
    const V16 top = hn::Set(d, 255);
    V16 pair[4];  // bytes of two columns, interleaved
    for (int i = 0; i < 4; ++i) {
        const V16 even = hn::Min(hn::Max(columns[2 * i], zero), top);
        const V16 odd = hn::Min(hn::Max(columns[2 * i + 1], zero), top);
        pair[i] = hn::Or(even, hn::ShiftLeft<8>(odd));
    }
    const V32 a = hn::BitCast(d32, hn::InterleaveLower(d, pair[0], pair[1]));
    const V32 b = hn::BitCast(d32, hn::InterleaveUpper(d, pair[0], pair[1]));
    const V32 c = hn::BitCast(d32, hn::InterleaveLower(d, pair[2], pair[3]));
    const V32 e = hn::BitCast(d32, hn::InterleaveUpper(d, pair[2], pair[3]));
    const auto rows01 = hn::BitCast(d64, hn::InterleaveLower(d32, a, c));
    const auto rows23 = hn::BitCast(d64, hn::InterleaveUpper(d32, a, c));
    const auto rows45 = hn::BitCast(d64, hn::InterleaveLower(d32, b, e));
    const auto rows67 = hn::BitCast(d64, hn::InterleaveUpper(d32, b, e));
    const DU8 d8;
    const auto rows02 = hn::BitCast(d8, hn::ConcatEven(d64, rows23, rows01));
    const auto rows13 = hn::BitCast(d8, hn::ConcatOdd(d64, rows23, rows01));
    const auto rows46 = hn::BitCast(d8, hn::ConcatEven(d64, rows67, rows45));
    const auto rows57 = hn::BitCast(d8, hn::ConcatOdd(d64, rows67, rows45));
    hn::StoreU(hn::LowerHalf(half, rows02), half, dst);
    hn::StoreU(hn::LowerHalf(half, rows13), half, dst + stride);
    hn::StoreU(hn::UpperHalf(half, rows02), half, dst + 2 * stride);
    hn::StoreU(hn::UpperHalf(half, rows13), half, dst + 3 * stride);
    hn::StoreU(hn::LowerHalf(half, rows46), half, dst + 4 * stride);
    hn::StoreU(hn::LowerHalf(half, rows57), half, dst + 5 * stride);
    hn::StoreU(hn::UpperHalf(half, rows46), half, dst + 6 * stride);
    hn::StoreU(hn::UpperHalf(half, rows57), half, dst + 7 * stride);
}

/// Transforms one group. Coefficients and `quant` are in paired order, position p of block b at
/// (p / 8 * GroupBlocks() + b) * 8 + p % 8; coefficients are zeroed for the next use. Writes 8 rows of
/// 8 * GroupBlocks() samples.
HWY_INLINE void InverseDctGroup(std::int16_t* HWY_RESTRICT coefficients,
                                const std::int16_t* HWY_RESTRICT quant, std::uint8_t* HWY_RESTRICT dst,
                                std::size_t stride)
{
    const D16 d;
    V16 lower[4];
    V16 upper[4];
    for (std::size_t i = 0; i < 4; ++i) {
        std::int16_t* at = coefficients + 2 * i * hn::Lanes(d);
        lower[i] = hn::Mul(hn::Load(d, at), hn::LoadDup128(d, quant + 16 * i));
        upper[i] = hn::Mul(hn::Load(d, at + hn::Lanes(d)), hn::LoadDup128(d, quant + 16 * i + 8));
        hn::Store(hn::Zero(d), d, at);
        hn::Store(hn::Zero(d), d, at + hn::Lanes(d));
    }
    V16 rows[8];
    Pass<kConstBits - kPassBits>(lower, upper, 1 << (kConstBits - kPassBits - 1), rows);
    Transpose4(rows, lower);
    Transpose4(rows + 4, upper);
    constexpr int kShift = kConstBits + kPassBits + 3;
    V16 columns[8];
    Pass<kShift>(lower, upper, (1 << (kShift - 1)) + (128 << kShift), columns);
    StoreColumns(columns, dst, stride);
}

/// The same for a group with DC coefficients only: each block has a single value.
HWY_INLINE void FillGroup(std::int16_t* HWY_RESTRICT coefficients, const std::int16_t* HWY_RESTRICT quant,
                          std::uint8_t* HWY_RESTRICT dst, std::size_t stride)
{
    const hn::Repartition<std::uint64_t, hn::Half<DU8>> d64;
    const hn::Half<DU8> half;
    alignas(32) std::uint64_t values[GroupBlocks()];
    for (std::size_t b = 0; b < GroupBlocks(); ++b) {
        const int scaled = (std::int16_t(coefficients[b * 8] * quant[0]) + 4) >> 3;
        coefficients[b * 8] = 0;
        values[b] = std::uint64_t(std::clamp(scaled + 128, 0, 255)) * 0x0101010101010101U;
    }
    const auto row = hn::BitCast(half, hn::Load(d64, values));
    for (std::size_t r = 0; r < 8; ++r) hn::StoreU(row, half, dst + r * stride);
}

}  // namespace idct
}  // namespace HWY_NAMESPACE
}  // namespace scansteps::jpeg
HWY_AFTER_NAMESPACE();

#endif
