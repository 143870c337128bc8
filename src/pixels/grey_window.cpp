// Vectorised and scalar window and level mapping.
#include "pixels/grey_window.h"

#include <algorithm>

#include "core/prefetch.h"
#include "core/sample_values.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "pixels/grey_window.cpp"
#include "hwy/foreach_target.h"  // IWYU pragma: keep
#include "hwy/highway.h"
//
#include "pixels/bytes-inl.h"

HWY_BEFORE_NAMESPACE();
namespace scansteps::pixels {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

// floor(255 v + 127.5) without widening to double: equal to the double-precision result where that is 0 to
// 255, elsewhere any number on the same side of that range.
#if HWY_TARGET <= HWY_AVX3
inline hn::Vec512<std::int32_t> Grey(hn::Vec512<float> v)
{
    const __m512 cut = _mm512_fmadd_round_ps(v.raw, _mm512_set1_ps(255.0F), _mm512_set1_ps(127.5F),
                                             _MM_FROUND_TO_ZERO | _MM_FROUND_NO_EXC);
    return hn::Vec512<std::int32_t>{_mm512_cvttps_epi32(cut)};
}
#else
// Both rounding errors, of 256 v - v and of the sum, are kept (Fast2Sum, exact because the first operand is
// the larger one); an integral result is one too large when the errors are negative.
template <class V>
auto Grey(V wide)
{
    const hn::DFromV<V> df;
    const hn::RebindToSigned<decltype(df)> di;
    const auto v = hn::Max(hn::Min(wide, hn::Set(df, 0.5F)), hn::Set(df, -0.5F));
    const auto v256 = hn::Mul(v, hn::Set(df, 256.0F));
    const auto product = hn::Sub(v256, v);
    const auto productError = hn::Sub(hn::Sub(v256, product), v);
    const auto half = hn::Set(df, 127.5F);
    const auto sum = hn::Add(half, product);
    const auto error = hn::Add(hn::Sub(product, hn::Sub(sum, half)), productError);
    const auto whole = hn::ConvertTo(di, sum);
    const auto isWhole = hn::Eq(hn::ConvertTo(df, whole), sum);
    const auto down = hn::And(isWhole, hn::Lt(error, hn::Zero(df)));
    return hn::Add(whole, hn::VecFromMask(di, hn::RebindMask(di, down)));
}
#endif

// Returns the number of samples converted; the level must lie within +-2^22. A vector of grey bytes becomes
// three vectors of triples: a permutation of dwords moves the bytes needed by each 16-byte block into that
// block, then a byte shuffle repeats them within it.
std::size_t GreyWindow(const std::uint16_t* HWY_RESTRICT src, std::uint8_t* HWY_RESTRICT dst,
                       std::size_t count, float scale, std::int32_t level)
{
    const hn::ScalableTag<float> df;
    const hn::Repartition<std::int16_t, decltype(df)> dWords;
    const hn::Repartition<std::uint16_t, decltype(df)> d16;
    const hn::Repartition<std::uint8_t, decltype(df)> d8;
    const hn::Repartition<std::uint32_t, decltype(df)> d32;
    const std::size_t words = hn::Lanes(d16), bytes = hn::Lanes(d8);
    // Position of grey byte b after packing, which interleaves the vectors in 8-byte pieces.
    const auto packedAt = [&](std::size_t b) { return b % words / 8 * 16 + b / words * 8 + b % 8; };
    alignas(64) std::uint32_t pieces[3][hn::MaxLanes(d32)];
    alignas(64) std::uint8_t repeats[3][hn::MaxLanes(d8)];
    for (std::size_t k = 0; k < 3 * bytes; ++k) {
        const std::size_t out = k / bytes, at = k % bytes;
        const std::size_t firstPiece = (k - k % 16) / 3 / 4;  // of the block
        if (at % 4 == 0)
            pieces[out][at / 4] =
                std::uint32_t(packedAt(std::min((firstPiece + at / 4 % 4) * 4, bytes - 4)) / 4);
        repeats[out][at] = std::uint8_t(k / 3 - 4 * firstPiece);
    }
    // A sample as the low mantissa bits of 2^23 is the float 2^23 + sample; subtracting the offset is exact.
    const auto exponent = hn::Set(d16, 0x4B00);
    const auto offset = hn::Set(df, float(0x800000 + kOffset16Zero + level));
    const auto factor = hn::Set(df, scale);
    const auto grey = [&](auto samples) HWY_ATTR {
        return Grey(hn::Mul(hn::Sub(hn::BitCast(df, samples), offset), factor));
    };
    const auto greys = [&](const std::uint16_t* from) HWY_ATTR {
        prefetch(from);
        const auto samples = hn::LoadU(d16, from);
        // Memory order is kept because both operations work within 16-byte blocks.
        return hn::ReorderDemote2To(dWords, grey(hn::InterleaveLower(d16, samples, exponent)),
                                    grey(hn::InterleaveUpper(d16, samples, exponent)));
    };
    std::size_t i = 0;
    for (; i + bytes <= count; i += bytes) {
        const auto low = greys(src + i), high = greys(src + i + words);
        const auto packed = hn::BitCast(d32, PackBytes(low, high));
        for (std::size_t out = 0; out < 3; ++out) {
            const auto near = hn::TableLookupLanes(packed, hn::SetTableIndices(d32, pieces[out]));
            const auto triples = hn::TableLookupBytes(hn::BitCast(d8, near), hn::Load(d8, repeats[out]));
            hn::StoreU(triples, d8, dst + 3 * i + out * bytes);
        }
    }
    return i;
}

}  // namespace HWY_NAMESPACE
}  // namespace scansteps::pixels
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace scansteps::pixels {

HWY_EXPORT(GreyWindow);

void greyWindow(std::span<const std::uint16_t> src, std::span<std::uint8_t> dst, std::int32_t window,
                std::int32_t level)
{
    const std::size_t count = std::min(src.size(), dst.size() / 3);
    const float scale = window != 0 ? 1.0F / static_cast<float>(window) : 1.0F;
    std::size_t done = 0;
    if (level > -(1 << 22) && level < 1 << 22)
        done = HWY_DYNAMIC_DISPATCH(GreyWindow)(src.data(), dst.data(), count, scale, level);
    scalar::greyWindow(src.subspan(done), dst.subspan(3 * done), window, level);
}

namespace scalar {

void greyWindow(std::span<const std::uint16_t> src, std::span<std::uint8_t> dst, std::int32_t window,
                std::int32_t level)
{
    const float scale = window != 0 ? 1.0F / static_cast<float>(window) : 1.0F;
    for (std::size_t i = 0; i < std::min(src.size(), dst.size() / 3); ++i) {
        const float v = static_cast<float>(std::int64_t{src[i]} - kOffset16Zero - level) * scale;
        const double grey = std::min(std::max((v + 0.5) * 255.0, 0.0), 255.0);
        dst[3 * i] = dst[3 * i + 1] = dst[3 * i + 2] = static_cast<std::uint8_t>(grey);
    }
}

}  // namespace scalar
}  // namespace scansteps::pixels
#endif
