// Vectorised and scalar packing of planes to YUYV16.
#include "jpeg/pack_yuyv16.h"

#include <algorithm>

#include "scansteps/error.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "jpeg/pack_yuyv16.cpp"
#include "hwy/foreach_target.h"  // IWYU pragma: keep
// foreach_target.h must precede the code that it repeats
#include "hwy/highway.h"

HWY_BEFORE_NAMESPACE();
namespace scansteps::jpeg {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

/// Packs one row: combines the chroma bytes of two columns first, then these with luma.
void PackYuyv16(const std::uint8_t* HWY_RESTRICT luma, const std::uint8_t* HWY_RESTRICT even,
                const std::uint8_t* HWY_RESTRICT odd, std::uint16_t* HWY_RESTRICT dst, std::size_t width)
{
    const hn::ScalableTag<std::uint8_t> d8;
    const hn::Half<decltype(d8)> half;
    const hn::Repartition<std::uint16_t, decltype(d8)> d16;
    const std::size_t lanes = hn::Lanes(d16);
    std::size_t x = 0;
    // Widening to 16 bits keeps bytes in order across the whole vector; interleaving does not.
    const hn::Rebind<std::uint8_t, decltype(d16)> bytes;
    for (; x + 2 * lanes <= width; x += 2 * lanes) {
        const auto e = hn::PromoteTo(d16, hn::LoadU(bytes, even + x / 2));
        const auto o = hn::PromoteTo(d16, hn::LoadU(bytes, odd + x / 2));
        const auto chroma =
            hn::BitCast(d8, hn::Or(e, hn::ShiftLeft<8>(o)));  // even and odd columns alternate
        for (std::size_t part = 0; part < 2; ++part) {
            const auto low = hn::PromoteTo(d16, hn::LoadU(bytes, luma + x + part * lanes));
            const auto high =
                hn::PromoteTo(d16, part == 0 ? hn::LowerHalf(half, chroma) : hn::UpperHalf(half, chroma));
            hn::StoreU(hn::Or(low, hn::ShiftLeft<8>(high)), d16, dst + x + part * lanes);
        }
    }
    for (; x < width; ++x) {
        const std::uint8_t* chroma = x % 2 == 0 ? even : odd;
        dst[x] = std::uint16_t(luma[x] | chroma[x / 2] << 8U);
    }
}

}  // namespace HWY_NAMESPACE
}  // namespace scansteps::jpeg
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace scansteps::jpeg {

HWY_EXPORT(PackYuyv16);

namespace {

template <class PackRow>
void packRows(std::span<const std::uint8_t> luma, std::span<const std::uint8_t> evenChroma,
              std::span<const std::uint8_t> oddChroma, std::span<std::uint16_t> dst, std::size_t width,
              std::size_t height, PackRow packRow)
{
    const std::size_t chromaWidth = width / 2 + width % 2;
    const std::size_t chromaSize = chromaWidth * (height / 2 + height % 2);
    if (luma.size() < width * height || dst.size() < width * height || evenChroma.size() < chromaSize ||
        oddChroma.size() < chromaSize)
        fail("packYuyv16: buffer too small");
    for (std::size_t y = 0; y < height; ++y)
        packRow(luma.data() + y * width, evenChroma.data() + y / 2 * chromaWidth,
                oddChroma.data() + y / 2 * chromaWidth, dst.data() + y * width, width);
}

}  // namespace

void packYuyv16(std::span<const std::uint8_t> luma, std::span<const std::uint8_t> evenChroma,
                std::span<const std::uint8_t> oddChroma, std::span<std::uint16_t> dst, std::size_t width,
                std::size_t height)
{
    packRows(luma, evenChroma, oddChroma, dst, width, height, HWY_DYNAMIC_DISPATCH(PackYuyv16));
}

void scalar::packYuyv16(std::span<const std::uint8_t> luma, std::span<const std::uint8_t> evenChroma,
                        std::span<const std::uint8_t> oddChroma, std::span<std::uint16_t> dst,
                        std::size_t width, std::size_t height)
{
    packRows(luma, evenChroma, oddChroma, dst, width, height,
             [](const std::uint8_t* row, const std::uint8_t* even, const std::uint8_t* odd,
                std::uint16_t* out, std::size_t count) {
                 for (std::size_t x = 0; x < count; ++x) {
                     const std::uint8_t* chroma = x % 2 == 0 ? even : odd;
                     out[x] = std::uint16_t(row[x] | chroma[x / 2] << 8U);
                 }
             });
}

}  // namespace scansteps::jpeg
#endif
