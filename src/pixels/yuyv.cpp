// Vectorised and scalar conversion between YUYV16 and RGB.
#include "pixels/yuyv.h"

#include <algorithm>

#include "core/prefetch.h"
#include "scansteps/error.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "pixels/yuyv.cpp"
#include "hwy/foreach_target.h"  // IWYU pragma: keep
#include "hwy/highway.h"
//
#include "pixels/bytes-inl.h"

HWY_BEFORE_NAMESPACE();
namespace scansteps::pixels {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

// The double-precision formulas are fractions with denominators 250, 1000 and 500, and narrowing to single
// precision removes the errors in the last bits of the doubles, so the bytes are exact floors. Integer
// multiples of Y, U and V are split off until the numerators fit 16 bits:
//   R = Y + 2 V - 326 + floor((41 Y - 101 V + 25772) / 250)
//   G = Y - V + floor((41 Y - 98 U + 46 V + 33872 + floor((U + 3 V) / 4)) / 250)
//   B = Y + 2 U - 326 + floor((82 Y + 9 U + 24536) / 500)
// Numerators n stay below 59074, the limit up to which (n * 33555) >> 23 is floor(n / 250) (>> 24 for 500).
// Returns the number of samples converted, which is even.
std::size_t YuyvToRgb(const std::uint16_t* HWY_RESTRICT src, std::uint8_t* HWY_RESTRICT dst,
                      std::size_t count)
{
    const hn::ScalableTag<std::uint8_t> d8;
    const hn::Repartition<std::int16_t, decltype(d8)> d16;
    const hn::Repartition<std::uint16_t, decltype(d8)> du16;
    alignas(16) static constexpr std::uint8_t kYv[16] = {0, 3,  2,  3,  4,  7,  6,  7,
                                                         8, 11, 10, 11, 12, 15, 14, 15};
    alignas(16) static constexpr std::uint8_t kYu[16] = {0, 1, 2, 1, 4, 5, 6, 5, 8, 9, 10, 9, 12, 13, 14, 13};
    alignas(16) static constexpr std::uint8_t kUv[16] = {1, 3,  1, 3,  5,  7,  5,  7,
                                                         9, 11, 9, 11, 13, 15, 13, 15};
    const auto yvIndex = hn::LoadDup128(d8, kYv);
    const auto yuIndex = hn::LoadDup128(d8, kYu);
    const auto uvIndex = hn::LoadDup128(d8, kUv);
    // Loaded from memory, because broadcasts from a general register compete with the shuffles.
    alignas(16) static constexpr std::uint16_t kWords[5][8] = {
        {33555, 33555, 33555, 33555, 33555, 33555, 33555, 33555},
        {25772, 25772, 25772, 25772, 25772, 25772, 25772, 25772},
        {24536, 24536, 24536, 24536, 24536, 24536, 24536, 24536},
        {33872, 33872, 33872, 33872, 33872, 33872, 33872, 33872},
        {326, 326, 326, 326, 326, 326, 326, 326}};
    const auto word = [&](int k) HWY_ATTR { return hn::BitCast(d16, hn::LoadDup128(du16, kWords[k])); };
    const auto reciprocal = hn::LoadDup128(du16, kWords[0]);
    const auto rOffset = word(1), bOffset = word(2), gOffset = word(3), whole = word(4);
    const std::size_t lanes = hn::Lanes(d16);
    const auto quotient = [&](auto numerator)
                              HWY_ATTR { return hn::MulHigh(hn::BitCast(du16, numerator), reciprocal); };
    const auto convert = [&](auto samples, auto& r, auto& g, auto& b) HWY_ATTR {
        const auto x = hn::BitCast(d8, samples);
        const auto yv = hn::BitCast(d16, hn::TableLookupBytes(x, yvIndex));
        const auto yu = hn::BitCast(d16, hn::TableLookupBytes(x, yuIndex));
        const auto uv = hn::BitCast(d16, hn::TableLookupBytes(x, uvIndex));
        const auto rq = quotient(hn::Add(MaddBytes(yv, BytePair(d16, 41, -101)), rOffset));
        const auto rWhole = hn::Sub(MaddBytes(yv, BytePair(d16, 1, 2)), whole);
        r = hn::Add(rWhole, hn::BitCast(d16, hn::ShiftRight<7>(rq)));
        const auto bq = quotient(hn::Add(MaddBytes(yu, BytePair(d16, 82, 9)), bOffset));
        const auto bWhole = hn::Sub(MaddBytes(yu, BytePair(d16, 1, 2)), whole);
        b = hn::Add(bWhole, hn::BitCast(d16, hn::ShiftRight<8>(bq)));
        const auto chroma = hn::Add(hn::Add(MaddBytes(uv, BytePair(d16, -98, 46)), gOffset),
                                    hn::ShiftRight<2>(MaddBytes(uv, BytePair(d16, 1, 3))));
        const auto gq = quotient(hn::Add(MaddBytes(yv, BytePair(d16, 41, 0)), chroma));
        const auto gWhole = MaddBytes(yv, BytePair(d16, 1, -1));
        g = hn::Add(gWhole, hn::BitCast(d16, hn::ShiftRight<7>(gq)));
    };
    std::size_t i = 0;
    for (; i + 2 * lanes <= count; i += 2 * lanes) {
        prefetch(src + i);
        prefetch(src + i + lanes);
        for (std::size_t out = 0; out < 3; ++out) prefetchForWriting(dst + 3 * i + out * hn::Lanes(d8));
        hn::Vec<decltype(du16)> even, odd;
        LoadAlternateBlocks(du16, src + i, even, odd);
        hn::Vec<decltype(d16)> r0, g0, b0, r1, g1, b1;
        convert(even, r0, g0, b0);
        convert(odd, r1, g1, b1);
        hn::StoreInterleaved3(PackBytes(r0, r1), PackBytes(g0, g1), PackBytes(b0, b1), d8, dst + 3 * i);
    }
    return i;
}

// One 32-bit lane per pixel: (r, g) and (b, 32) times pairs of 16-bit coefficients; the constant term is 32
// times the last coefficient. Returns the number of pixels converted, which is even.
std::size_t RgbToYuyv(const std::uint8_t* HWY_RESTRICT src, std::uint16_t* HWY_RESTRICT dst,
                      std::size_t count)
{
    const hn::ScalableTag<std::uint8_t> d8;
    const hn::Repartition<std::int16_t, decltype(d8)> d16;
    const hn::Repartition<std::int32_t, decltype(d8)> d32;
    const hn::Repartition<std::uint32_t, decltype(d8)> du32;
    const hn::Rebind<std::uint16_t, decltype(d32)> dOut;
    alignas(16) static constexpr std::uint8_t kRg[16] = {0, 255, 1, 255, 3, 255, 4,  255,
                                                         6, 255, 7, 255, 9, 255, 10, 255};
    alignas(16) static constexpr std::uint8_t kB[16] = {2, 255, 255, 255, 5,  255, 255, 255,
                                                        8, 255, 255, 255, 11, 255, 255, 255};
    alignas(16) static constexpr std::int16_t kY[2][8] = {{1052, 2064, 1052, 2064, 1052, 2064, 1052, 2064},
                                                          {401, 2048, 401, 2048, 401, 2048, 401, 2048}};
    alignas(16) static constexpr std::int16_t kC[2][8] = {
        {-606, -1191, 1798, -1507, -606, -1191, 1798, -1507},
        {1798, 16384, -290, 16384, 1798, 16384, -290, 16384}};
    // Four pixels take 12 bytes: dwords 3 b to 3 b + 2 go to 16-byte block b.
    alignas(64) std::uint32_t spread[hn::MaxLanes(du32)];
    for (std::size_t k = 0; k < hn::Lanes(du32); ++k)
        spread[k] = std::uint32_t(k / 4 * 3 + std::min<std::size_t>(k % 4, 2));
    const auto spreadIndex = hn::SetTableIndices(du32, spread);
    const auto rgIndex = hn::LoadDup128(d8, kRg);
    const auto bIndex = hn::LoadDup128(d8, kB);
    const auto y0 = hn::LoadDup128(d16, kY[0]), y1 = hn::LoadDup128(d16, kY[1]);
    const auto c0 = hn::LoadDup128(d16, kC[0]), c1 = hn::LoadDup128(d16, kC[1]);
    const auto thirtyTwo = hn::Set(d32, 32 << 16);
    const auto highByte = hn::Set(d32, 0xFF00);
    const std::size_t lanes = hn::Lanes(d32);
    std::size_t i = 0;
    for (; 3 * i + hn::Lanes(d8) <= 3 * count; i += lanes) {
        prefetch(src + 3 * i);
        prefetchForWriting(dst + i);
        const auto x =
            hn::BitCast(d8, hn::TableLookupLanes(hn::BitCast(du32, hn::LoadU(d8, src + 3 * i)), spreadIndex));
        const auto rg = hn::BitCast(d16, hn::TableLookupBytesOr0(x, rgIndex));
        const auto b1 =
            hn::BitCast(d16, hn::Or(hn::BitCast(d32, hn::TableLookupBytesOr0(x, bIndex)), thirtyTwo));
        const auto sum = [&](auto coefficients0, auto coefficients1) HWY_ATTR {
            auto rest = hn::Zero(d32);
            const auto part = hn::ReorderWidenMulAccumulate(d32, rg, coefficients0, hn::Zero(d32), rest);
            const auto both = hn::ReorderWidenMulAccumulate(d32, b1, coefficients1, part, rest);
            return hn::RearrangeToOddPlusEven(both, rest);
        };
        const auto luma = hn::ShiftRight<12>(sum(y0, y1));
        const auto chroma = hn::And(hn::ShiftRight<4>(sum(c0, c1)), highByte);
        hn::StoreU(hn::DemoteTo(dOut, hn::Or(luma, chroma)), dOut, dst + i);
    }
    return i;
}

}  // namespace HWY_NAMESPACE
}  // namespace scansteps::pixels
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace scansteps::pixels {

HWY_EXPORT(YuyvToRgb);
HWY_EXPORT(RgbToYuyv);

namespace {

void checkSizes(std::size_t samples, std::size_t bytes, std::size_t width, std::size_t height)
{
    if (width != 0 && height > samples / width) fail("YUYV16 buffer smaller than width x height");
    if (bytes / 3 < width * height) fail("RGB buffer smaller than width x height");
}

// Converts columns `first` to width - 1 of the row that starts at pixel `row` of the frame.
void rowToYuyv(std::span<const std::uint8_t> src, std::span<std::uint16_t> dst, std::size_t row,
               std::size_t first, std::size_t width)
{
    for (std::size_t x = first; x < width; ++x) {
        const std::uint8_t* rgb = &src[3 * (row + x)];
        const int r = rgb[0], g = rgb[1], b = rgb[2];
        const int luma = (1052 * r + 2064 * g + 401 * b + 65536) >> 12;
        const int chroma = (x & 1) == 0 ? (-606 * r - 1191 * g + 1798 * b + 524288) >> 12
                                        : (1798 * r - 1507 * g - 290 * b + 524288) >> 12;
        dst[row + x] = static_cast<std::uint16_t>((luma & 0xFF) | ((chroma & 0xFF) << 8));
    }
}

}  // namespace

void yuyvToRgb(std::span<const std::uint16_t> src, std::span<std::uint8_t> dst, std::size_t width,
               std::size_t height)
{
    checkSizes(src.size(), dst.size(), width, height);
    const std::size_t frame = width * height;
    // With an even width no chroma pair crosses a row boundary, so the frame is one long row.
    const std::size_t line = width % 2 == 0 ? frame : width;
    for (std::size_t row = 0; row < frame; row += line) {
        const std::size_t done = HWY_DYNAMIC_DISPATCH(YuyvToRgb)(&src[row], &dst[3 * row], line);
        yuyv16RowToRgb(src, dst, row, done, line, frame);
    }
}

void rgbToYuyv(std::span<const std::uint8_t> src, std::span<std::uint16_t> dst, std::size_t width,
               std::size_t height)
{
    checkSizes(dst.size(), src.size(), width, height);
    const std::size_t frame = width * height;
    const std::size_t line = width % 2 == 0 ? frame : width;
    for (std::size_t row = 0; row < frame; row += line) {
        const std::size_t done = HWY_DYNAMIC_DISPATCH(RgbToYuyv)(&src[3 * row], &dst[row], line);
        rowToYuyv(src, dst, row, done, line);
    }
}

namespace scalar {

void rgbToYuyv(std::span<const std::uint8_t> src, std::span<std::uint16_t> dst, std::size_t width,
               std::size_t height)
{
    checkSizes(dst.size(), src.size(), width, height);
    for (std::size_t y = 0; y < height; ++y) rowToYuyv(src, dst, y * width, 0, width);
}

}  // namespace scalar
}  // namespace scansteps::pixels
#endif
