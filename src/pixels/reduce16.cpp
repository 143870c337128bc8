// Frame reduction: a vectorised path for factor 2, the scalar one for everything else.
#include "pixels/reduce16.h"

#include "core/prefetch.h"
#include "core/sample_values.h"
#include "scansteps/error.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "pixels/reduce16.cpp"
#include "hwy/foreach_target.h"  // IWYU pragma: keep
#include "hwy/highway.h"
//
#include "pixels/bytes-inl.h"

HWY_BEFORE_NAMESPACE();
namespace scansteps::pixels {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

using D32 = hn::ScalableTag<std::int32_t>;
using D16 = hn::Repartition<std::int16_t, D32>;
using DU16 = hn::Repartition<std::uint16_t, D32>;

// Factor 2: one output row from two input rows, a vector of output samples at a time. `half` sums two
// neighbours above and two below into 32-bit lanes, `whole` packs two such vectors into one of samples. The
// last vector may overlap the one before it and starts at an even column. Returns the number of samples
// written.
template <class Half, class Whole>
HWY_INLINE std::size_t HalveRow(const std::uint16_t* HWY_RESTRICT upper,
                                const std::uint16_t* HWY_RESTRICT lower, std::uint16_t* HWY_RESTRICT dst,
                                std::size_t count, Half half, Whole whole)
{
    const DU16 du16;
    const hn::Repartition<std::uint64_t, D32> d64;
    const std::size_t step = hn::Lanes(du16);
    if (count < step) return 0;
    const auto inOrder = OrderOfPacked(d64);
    const auto at = [&](std::size_t i) HWY_ATTR {
        const std::uint16_t *a = upper + 2 * i, *b = lower + 2 * i;
        for (const std::uint16_t* row : {a, b}) {
            prefetch(row);
            prefetch(row + step);
        }
        const auto first = half(hn::LoadU(du16, a), hn::LoadU(du16, b));
        const auto second = half(hn::LoadU(du16, a + step), hn::LoadU(du16, b + step));
        const auto samples = hn::TableLookupLanes(hn::BitCast(d64, whole(first, second)), inOrder);
        hn::StoreU(hn::BitCast(du16, samples), du16, dst + i);
    };
    for (std::size_t i = 0; i + step <= count; i += step) at(i);
    if (count % step != 0) at((count - step) / 2 * 2);
    return count / 2 * 2;
}

// Flipping the top bit of a sample subtracts 32768, as a signed 16-bit number.
std::size_t HalveOffset16(const std::uint16_t* upper, const std::uint16_t* lower, std::uint16_t* dst,
                          std::size_t count)
{
    const D32 d32;
    const D16 d16;
    const auto flip = hn::Set(d16, std::int16_t{-32768});
    const auto one = hn::Set(d16, 1);
    const auto mean = [&](hn::Vec<DU16> a, hn::Vec<DU16> b) HWY_ATTR {
        auto rest = hn::Zero(d32);
        auto sum =
            hn::ReorderWidenMulAccumulate(d32, hn::Xor(hn::BitCast(d16, a), flip), one, hn::Zero(d32), rest);
        sum = hn::ReorderWidenMulAccumulate(d32, hn::Xor(hn::BitCast(d16, b), flip), one, sum, rest);
        sum = hn::RearrangeToOddPlusEven(sum, rest);
        const auto towardZero = hn::And(hn::ShiftRight<31>(sum), hn::Set(d32, 3));
        return hn::ShiftRight<2>(hn::Add(sum, towardZero));
    };
    return HalveRow(upper, lower, dst, count, mean, [&](auto first, auto second) HWY_ATTR {
        return hn::Xor(hn::ReorderDemote2To(d16, first, second), flip);
    });
}

// In a pair of YUYV16 samples, bytes 0 and 2 are luma, 1 is U and 3 is V; even output columns take U, odd
// ones V. Sums are divided only after two vectors are packed.
struct YuyvSums
{
    hn::Vec<D32> luma, chroma;
};

std::size_t HalveYuyv16(const std::uint16_t* upper, const std::uint16_t* lower, std::uint16_t* dst,
                        std::size_t count)
{
    const D32 d32;
    const D16 d16;
    const hn::Repartition<std::uint8_t, D32> d8;
    alignas(16) static constexpr std::uint8_t kChroma[16] = {1, 255, 255, 255, 7,  255, 255, 255,
                                                             9, 255, 255, 255, 15, 255, 255, 255};
    const auto chromaIndex = hn::LoadDup128(d8, kChroma);
    const auto lowByte = hn::Set(DU16(), 0xFF);
    const auto highByte = hn::Set(d16, std::int16_t{-256});
    const auto one = hn::Set(d16, 1);
    const auto sums = [&](hn::Vec<DU16> a, hn::Vec<DU16> b) HWY_ATTR {
        const auto columns = hn::BitCast(d16, hn::Add(hn::And(a, lowByte), hn::And(b, lowByte)));
        auto rest = hn::Zero(d32);
        const auto luma = hn::ReorderWidenMulAccumulate(d32, columns, one, hn::Zero(d32), rest);
        const auto chroma = [&](hn::Vec<DU16> v) HWY_ATTR {
            return hn::BitCast(d32, hn::TableLookupBytesOr0(hn::BitCast(d8, v), chromaIndex));
        };
        return YuyvSums{hn::RearrangeToOddPlusEven(luma, rest), hn::Add(chroma(a), chroma(b))};
    };
    return HalveRow(
        upper, lower, dst, count, sums, [&](const YuyvSums& first, const YuyvSums& second) HWY_ATTR {
            const auto luma = hn::ShiftRight<2>(hn::ReorderDemote2To(d16, first.luma, second.luma));
            const auto chroma = hn::ShiftLeft<7>(hn::ReorderDemote2To(d16, first.chroma, second.chroma));
            return hn::Or(luma, hn::And(chroma, highByte));
        });
}

}  // namespace HWY_NAMESPACE
}  // namespace scansteps::pixels
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace scansteps::pixels {

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
            sum += src[k] - kOffset16Zero;
    const auto area = static_cast<std::int64_t>(s.factor * s.factor);
    return static_cast<std::uint16_t>(sum / area + kOffset16Zero);
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
        if (s.factor == 2 && width % 2 == 0)  // otherwise chroma pairs are not aligned with blocks
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
}  // namespace scansteps::pixels
#endif
