#include "convert/reduce16.h"

#include "framework/fetch_ahead.h"
#include "scansteps/error.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "convert/reduce16.cpp"
#include "hwy/foreach_target.h"  // IWYU pragma: keep
#include "hwy/highway.h"

HWY_BEFORE_NAMESPACE();
namespace scansteps {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

// Factor 2, one row of the output from two of the input: a 32-bit lane is a pair of neighbours. Samples less
// 32768 are the samples with the top bit flipped, as signed 16-bit numbers. Returns the number of output
// samples done.
std::size_t HalveOffset16(const std::uint16_t* HWY_RESTRICT upper, const std::uint16_t* HWY_RESTRICT lower,
                          std::uint16_t* HWY_RESTRICT dst, std::size_t count)
{
    const hn::ScalableTag<std::int32_t> d32;
    const hn::Repartition<std::int16_t, decltype(d32)> d16;
    const hn::Repartition<std::uint16_t, decltype(d32)> du16;
    const hn::Rebind<std::uint16_t, decltype(d32)> dOut;
    const auto flip = hn::Set(du16, 0x8000);
    const auto one = hn::Set(d16, 1);
    const std::size_t lanes = hn::Lanes(d32);
    std::size_t i = 0;
    for (; i + lanes <= count; i += lanes) {
        fetchAhead(upper + 2 * i);
        fetchAhead(lower + 2 * i);
        const auto a = hn::BitCast(d16, hn::Xor(hn::LoadU(du16, upper + 2 * i), flip));
        const auto b = hn::BitCast(d16, hn::Xor(hn::LoadU(du16, lower + 2 * i), flip));
        auto rest = hn::Zero(d32);
        auto sum = hn::ReorderWidenMulAccumulate(d32, a, one, hn::Zero(d32), rest);
        sum = hn::RearrangeToOddPlusEven(hn::ReorderWidenMulAccumulate(d32, b, one, sum, rest), rest);
        const auto towardZero = hn::And(hn::ShiftRight<31>(sum), hn::Set(d32, 3));
        const auto mean = hn::ShiftRight<2>(hn::Add(sum, towardZero));
        hn::StoreU(hn::DemoteTo(dOut, hn::Add(mean, hn::Set(d32, 32768))), dOut, dst + i);
    }
    return i;
}

// The same for YUYV16: byte 0 and 2 of a lane are luma, 1 is U and 3 is V; an even output column takes U, an
// odd V.
std::size_t HalveYuyv16(const std::uint16_t* HWY_RESTRICT upper, const std::uint16_t* HWY_RESTRICT lower,
                        std::uint16_t* HWY_RESTRICT dst, std::size_t count)
{
    const hn::ScalableTag<std::int32_t> d32;
    const hn::Repartition<std::uint32_t, decltype(d32)> du32;
    const hn::Repartition<std::uint8_t, decltype(d32)> d8;
    const hn::Repartition<std::uint16_t, decltype(d32)> du16;
    const hn::Rebind<std::uint16_t, decltype(d32)> dOut;
    alignas(16) static constexpr std::uint8_t kChroma[16] = {1, 255, 255, 255, 7,  255, 255, 255,
                                                             9, 255, 255, 255, 15, 255, 255, 255};
    const auto chromaIndex = hn::LoadDup128(d8, kChroma);
    const auto lowByte = hn::Set(du16, 0xFF);
    const std::size_t lanes = hn::Lanes(d32);
    std::size_t i = 0;
    for (; i + lanes <= count; i += lanes) {
        fetchAhead(upper + 2 * i);
        fetchAhead(lower + 2 * i);
        const auto a = hn::LoadU(du16, upper + 2 * i);
        const auto b = hn::LoadU(du16, lower + 2 * i);
        const auto columns = hn::BitCast(du32, hn::Add(hn::And(a, lowByte), hn::And(b, lowByte)));
        const auto luma =
            hn::ShiftRight<2>(hn::And(hn::Add(columns, hn::ShiftRight<16>(columns)), hn::Set(du32, 0xFFFF)));
        const auto chromaA = hn::BitCast(du32, hn::TableLookupBytesOr0(hn::BitCast(d8, a), chromaIndex));
        const auto chromaB = hn::BitCast(du32, hn::TableLookupBytesOr0(hn::BitCast(d8, b), chromaIndex));
        const auto chroma = hn::ShiftRight<1>(hn::Add(chromaA, chromaB));
        const auto sample = hn::Or(luma, hn::ShiftLeft<8>(chroma));
        hn::StoreU(hn::DemoteTo(dOut, hn::BitCast(d32, sample)), dOut, dst + i);
    }
    return i;
}

}  // namespace HWY_NAMESPACE
}  // namespace scansteps
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace scansteps {

HWY_EXPORT(HalveOffset16);
HWY_EXPORT(HalveYuyv16);

namespace {

struct Shape
{
    std::size_t width, height, factor, outWidth, outHeight;
};

Shape shapeOf(std::span<const std::uint16_t> src, std::span<std::uint16_t> dst, std::size_t width,
              std::size_t height, int factor)
{
    if (factor < 1) fail("reduction factor below 1");
    if (width != 0 && height > src.size() / width) fail("frame to reduce smaller than width x height");
    const auto f = static_cast<std::size_t>(factor);
    if (width / f * (height / f) > dst.size()) fail("reduced frame too small");
    return {width, height, f, width / f, height / f};
}

std::uint16_t meanOffset(std::span<const std::uint16_t> src, const Shape& s, std::size_t x, std::size_t y)
{
    std::int64_t sum = 0;
    for (std::size_t row = y * s.factor; row < (y + 1) * s.factor; ++row)
        for (std::size_t k = row * s.width + x * s.factor; k < row * s.width + (x + 1) * s.factor; ++k)
            sum += src[k] - 32768;
    const auto area = static_cast<std::int64_t>(s.factor * s.factor);
    return static_cast<std::uint16_t>(sum / area + 32768);
}

std::uint16_t meanYuyv(std::span<const std::uint16_t> src, const Shape& s, std::size_t x, std::size_t y)
{
    std::uint64_t luma = 0, u = 0, v = 0;
    for (std::size_t row = y * s.factor; row < (y + 1) * s.factor; ++row) {
        for (std::size_t k = row * s.width + x * s.factor; k < row * s.width + (x + 1) * s.factor; ++k) {
            const std::size_t p = k & ~std::size_t{1};
            luma += src[k] & 0xFFU;
            u += src[p] >> 8;
            v += p + 1 < s.width * s.height ? src[p + 1] >> 8 : 128U;
        }
    }
    const std::uint64_t area = s.factor * s.factor;
    return static_cast<std::uint16_t>(luma / area | (x % 2 == 0 ? u / area : v / area) << 8);
}

template <class Mean>
void rowFrom(std::span<std::uint16_t> dst, const Shape& s, std::size_t y, std::size_t first, Mean mean)
{
    for (std::size_t x = first; x < s.outWidth; ++x) dst[y * s.outWidth + x] = mean(x, y);
}

}  // namespace

void reduceOffset16(std::span<const std::uint16_t> src, std::span<std::uint16_t> dst, std::size_t width,
                    std::size_t height, int factor)
{
    const Shape s = shapeOf(src, dst, width, height, factor);
    const auto mean = [&](std::size_t x, std::size_t y) { return meanOffset(src, s, x, y); };
    for (std::size_t y = 0; y < s.outHeight; ++y) {
        const std::uint16_t* rows = src.data() + y * s.factor * width;
        std::size_t done = 0;
        if (s.factor == 2)
            done = HWY_DYNAMIC_DISPATCH(HalveOffset16)(rows, rows + width, dst.data() + y * s.outWidth,
                                                       s.outWidth);
        rowFrom(dst, s, y, done, mean);
    }
}

void reduceYuyv16(std::span<const std::uint16_t> src, std::span<std::uint16_t> dst, std::size_t width,
                  std::size_t height, int factor)
{
    const Shape s = shapeOf(src, dst, width, height, factor);
    const auto mean = [&](std::size_t x, std::size_t y) { return meanYuyv(src, s, x, y); };
    for (std::size_t y = 0; y < s.outHeight; ++y) {
        const std::uint16_t* rows = src.data() + y * s.factor * width;
        std::size_t done = 0;
        if (s.factor == 2 && width % 2 == 0)  // else pairs are not aligned with blocks
            done = HWY_DYNAMIC_DISPATCH(HalveYuyv16)(rows, rows + width, dst.data() + y * s.outWidth,
                                                     s.outWidth);
        rowFrom(dst, s, y, done, mean);
    }
}

namespace scalar {

void reduceOffset16(std::span<const std::uint16_t> src, std::span<std::uint16_t> dst, std::size_t width,
                    std::size_t height, int factor)
{
    const Shape s = shapeOf(src, dst, width, height, factor);
    for (std::size_t y = 0; y < s.outHeight; ++y)
        rowFrom(dst, s, y, 0, [&](std::size_t x, std::size_t row) { return meanOffset(src, s, x, row); });
}

void reduceYuyv16(std::span<const std::uint16_t> src, std::span<std::uint16_t> dst, std::size_t width,
                  std::size_t height, int factor)
{
    const Shape s = shapeOf(src, dst, width, height, factor);
    for (std::size_t y = 0; y < s.outHeight; ++y)
        rowFrom(dst, s, y, 0, [&](std::size_t x, std::size_t row) { return meanYuyv(src, s, x, row); });
}

}  // namespace scalar
}  // namespace scansteps
#endif
