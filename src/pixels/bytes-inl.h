// Operations on bytes that Highway 1.0.3 lacks: dot products of byte pairs, and packing two vectors of words
// into one of bytes. Included once per instruction set, in scansteps::pixels::HWY_NAMESPACE.
#if defined(SCANSTEPS_BYTES_INL_H_) == defined(HWY_TARGET_TOGGLE)
#ifdef SCANSTEPS_BYTES_INL_H_
#undef SCANSTEPS_BYTES_INL_H_
#else
#define SCANSTEPS_BYTES_INL_H_
#endif

#include <cstddef>
#include <cstdint>

#include "hwy/highway.h"

HWY_BEFORE_NAMESPACE();
namespace scansteps::pixels {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

/// The coefficient pair (c0, c1) in every 16-bit lane, applied to the low and the high byte of a lane.
template <class D16>
hn::Vec<D16> BytePair(D16 d, int c0, int c1)
{
    return hn::Set(d, static_cast<std::int16_t>((c0 & 0xFF) | ((c1 & 0xFF) << 8)));
}

// c0 * low byte + c1 * high byte for every 16-bit lane of `bytes`, with unsigned bytes and signed
// coefficients. The instruction saturates; callers choose coefficients whose sums fit 16 bits.
#if HWY_ARCH_X86
template <std::size_t N>
hn::Vec128<std::int16_t, N> MaddBytes(hn::Vec128<std::int16_t, N> bytes, hn::Vec128<std::int16_t, N> pair)
{
    return hn::Vec128<std::int16_t, N>{_mm_maddubs_epi16(bytes.raw, pair.raw)};
}
#if HWY_TARGET <= HWY_AVX2
inline hn::Vec256<std::int16_t> MaddBytes(hn::Vec256<std::int16_t> bytes, hn::Vec256<std::int16_t> pair)
{
    return hn::Vec256<std::int16_t>{_mm256_maddubs_epi16(bytes.raw, pair.raw)};
}
#endif
#if HWY_TARGET <= HWY_AVX3
inline hn::Vec512<std::int16_t> MaddBytes(hn::Vec512<std::int16_t> bytes, hn::Vec512<std::int16_t> pair)
{
    return hn::Vec512<std::int16_t>{_mm512_maddubs_epi16(bytes.raw, pair.raw)};
}
#endif
#else
template <class V>
V MaddBytes(V bytes, V pair)
{
    const hn::DFromV<V> d;
    const auto low = hn::And(bytes, hn::Set(d, std::int16_t{0xFF}));
    const auto high = hn::And(hn::ShiftRight<8>(bytes), hn::Set(d, std::int16_t{0xFF}));
    return hn::Add(hn::Mul(low, hn::ShiftRight<8>(hn::ShiftLeft<8>(pair))),
                   hn::Mul(high, hn::ShiftRight<8>(pair)));
}
#endif

// Clamps words to 0..255; every 16-byte block holds the 8 words of that block of `a`, then those of `b`.
#if HWY_ARCH_X86
template <std::size_t N>
hn::Vec128<std::uint8_t, 2 * N> PackBytes(hn::Vec128<std::int16_t, N> a, hn::Vec128<std::int16_t, N> b)
{
    return hn::Vec128<std::uint8_t, 2 * N>{_mm_packus_epi16(a.raw, b.raw)};
}
#if HWY_TARGET <= HWY_AVX2
inline hn::Vec256<std::uint8_t> PackBytes(hn::Vec256<std::int16_t> a, hn::Vec256<std::int16_t> b)
{
    return hn::Vec256<std::uint8_t>{_mm256_packus_epi16(a.raw, b.raw)};
}
#endif
#if HWY_TARGET <= HWY_AVX3
inline hn::Vec512<std::uint8_t> PackBytes(hn::Vec512<std::int16_t> a, hn::Vec512<std::int16_t> b)
{
    return hn::Vec512<std::uint8_t>{_mm512_packus_epi16(a.raw, b.raw)};
}
#endif
#else
// Other architectures only have vectors of 16 bytes.
template <class V>
auto PackBytes(V a, V b)
{
    const hn::Repartition<std::uint8_t, hn::DFromV<V> > d8;
    const hn::Half<decltype(d8)> half;
    return hn::Combine(d8, hn::DemoteTo(half, b), hn::DemoteTo(half, a));
}
#endif

// Packing two vectors interleaves them in 8-byte pieces: the TableLookupLanes indices that restore memory
// order.
template <class D64>
auto OrderOfPacked(D64 d)
{
    alignas(64) std::uint64_t order[hn::MaxLanes(d)];
    for (std::size_t k = 0; k < hn::Lanes(d); ++k) order[k] = 2 * k % hn::Lanes(d) + 2 * k / hn::Lanes(d);
    return hn::SetTableIndices(d, order);
}

// Loads two vectors of words: `a` gets the 16-byte blocks 0, 2, 4 ..., `b` the others, so that PackBytes
// puts the results in memory order.
template <class D16, HWY_IF_LE128(hn::TFromD<D16>, hn::MaxLanes(D16()))>
void LoadAlternateBlocks(D16 d, const hn::TFromD<D16>* from, hn::Vec<D16>& a, hn::Vec<D16>& b)
{
    a = hn::LoadU(d, from);
    b = hn::LoadU(d, from + hn::Lanes(d));
}
#if HWY_TARGET <= HWY_AVX2 && HWY_ARCH_X86
inline void LoadAlternateBlocks(hn::Full256<std::uint16_t> d, const std::uint16_t* from,
                                hn::Vec256<std::uint16_t>& a, hn::Vec256<std::uint16_t>& b)
{
    const auto first = hn::LoadU(d, from), second = hn::LoadU(d, from + 16);
    a = hn::ConcatLowerLower(d, second, first);
    b = hn::ConcatUpperUpper(d, second, first);
}
#endif
#if HWY_TARGET <= HWY_AVX3 && HWY_ARCH_X86
inline void LoadAlternateBlocks(hn::Full512<std::uint16_t> d, const std::uint16_t* from,
                                hn::Vec512<std::uint16_t>& a, hn::Vec512<std::uint16_t>& b)
{
    const auto first = hn::LoadU(d, from), second = hn::LoadU(d, from + 32);
    a = hn::Vec512<std::uint16_t>{_mm512_shuffle_i64x2(first.raw, second.raw, 0x88)};
    b = hn::Vec512<std::uint16_t>{_mm512_shuffle_i64x2(first.raw, second.raw, 0xDD)};
}
#endif

}  // namespace HWY_NAMESPACE
}  // namespace scansteps::pixels
HWY_AFTER_NAMESPACE();
#endif
