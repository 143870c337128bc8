// Row kernels of the grey filters, in vector code with scalar tails, and the passes over the image that use
// them.
#include "grey/grey_filters.h"

#include <algorithm>
#include <array>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "grey/grey_filters.cpp"
#include "hwy/foreach_target.h"  // IWYU pragma: keep
#include "hwy/highway.h"

#ifndef SCANSTEPS_GREY_FILTER_ROWS
#define SCANSTEPS_GREY_FILTER_ROWS
namespace scansteps::grey {

// Kernels for whole rows. Each returns the number of output samples it has written, at most `count`; the
// caller computes the rest.
struct GreyRowKernels
{
    int (*binomialDown)(const std::array<const std::uint8_t*, 5>& rows, int count, std::uint8_t* out);
    int (*binomialAlong)(const std::uint8_t* row, int count, std::uint8_t* out);
    int (*halve)(const std::uint8_t* upper, const std::uint8_t* lower, int count, std::uint8_t* out);
    int (*thirdsDown)(const std::uint8_t* twice, const std::uint8_t* once, int count, std::uint8_t* out);
    int (*thirdsAlong)(const std::uint8_t* row, int pairs, std::uint8_t* out);
    int (*boxDown)(const std::array<const std::uint8_t*, 3>& rows, int count, std::uint16_t* sums);
    int (*boxAlong)(const std::uint16_t* sums, int count, std::uint8_t* out);
};

}  // namespace scansteps::grey
#endif

HWY_BEFORE_NAMESPACE();
namespace scansteps::grey {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

using D8 = hn::ScalableTag<std::uint8_t>;
using D16 = hn::Repartition<std::uint16_t, D8>;
using Half8 = hn::Half<D8>;
using V8 = hn::Vec<Half8>;
using V16 = hn::Vec<D16>;

HWY_INLINE V16 Wide(const std::uint8_t* from)
{
    return hn::PromoteTo(D16(), hn::LoadU(Half8(), from));
}

HWY_INLINE V16 Binomial(V16 a, V16 b, V16 c, V16 d, V16 e)
{
    const V16 bd = hn::Add(hn::Add(b, d), c);
    const V16 sum = hn::Add(hn::Add(a, e), hn::Add(hn::ShiftLeft<2>(bd), hn::Add(c, c)));
    return hn::ShiftRight<4>(hn::Add(sum, hn::Set(D16(), std::uint16_t{8})));
}

HWY_INLINE V8 Narrow(V16 v)
{
    return hn::DemoteTo(Half8(), hn::BitCast(hn::RebindToSigned<D16>(), v));
}

int BinomialDown(const std::array<const std::uint8_t*, 5>& rows, int count, std::uint8_t* out)
{
    const int lanes = int(hn::Lanes(D16()));
    int x = 0;
    for (; x + lanes <= count; x += lanes)
        hn::StoreU(Narrow(Binomial(Wide(rows[0] + x), Wide(rows[1] + x), Wide(rows[2] + x), Wide(rows[3] + x),
                                   Wide(rows[4] + x))),
                   Half8(), out + x);
    return x;
}

int BinomialAlong(const std::uint8_t* row, int count, std::uint8_t* out)
{
    const int lanes = int(hn::Lanes(D16()));
    int x = 0;
    for (; x + lanes <= count; x += lanes) {
        const std::uint8_t* p = row + x;
        hn::StoreU(Narrow(Binomial(Wide(p), Wide(p + 1), Wide(p + 2), Wide(p + 3), Wide(p + 4))), Half8(),
                   out + x);
    }
    return x;
}

int Halve(const std::uint8_t* upper, const std::uint8_t* lower, int count, std::uint8_t* out)
{
    const D16 d;
    const int lanes = int(hn::Lanes(d));
    const auto low = hn::Set(d, std::uint16_t{0xFF});
    int x = 0;
    for (; x + lanes <= count; x += lanes) {
        const auto a = hn::BitCast(d, hn::LoadU(D8(), upper + 2 * x));
        const auto b = hn::BitCast(d, hn::LoadU(D8(), lower + 2 * x));
        const auto sum = hn::Add(hn::Add(hn::And(a, low), hn::ShiftRight<8>(a)),
                                 hn::Add(hn::And(b, low), hn::ShiftRight<8>(b)));
        hn::StoreU(Narrow(hn::ShiftRight<2>(hn::Add(sum, hn::Set(d, std::uint16_t{2})))), Half8(), out + x);
    }
    return x;
}

// round((2 a + b) / 3): 21846 is 65536 / 3 rounded up, which is exact for sums up to 766
HWY_INLINE V16 Third(V16 twice, V16 once)
{
    const D16 d;
    const V16 sum = hn::Add(hn::Add(twice, twice), hn::Add(once, hn::Set(d, std::uint16_t{1})));
    return hn::MulHigh(sum, hn::Set(d, std::uint16_t{21846}));
}

int ThirdsDown(const std::uint8_t* twice, const std::uint8_t* once, int count, std::uint8_t* out)
{
    const int lanes = int(hn::Lanes(D16()));
    int x = 0;
    for (; x + lanes <= count; x += lanes)
        hn::StoreU(Narrow(Third(Wide(twice + x), Wide(once + x))), Half8(), out + x);
    return x;
}

int ThirdsAlong(const std::uint8_t* row, int pairs, std::uint8_t* out)
{
    const Half8 d;
    const int lanes = int(hn::Lanes(d));
    int x = 0;
    for (; x + lanes <= pairs; x += lanes) {
        V8 a, b, c;
        hn::LoadInterleaved3(d, row + 3 * x, a, b, c);
        const D16 wide;
        const V16 middle = hn::PromoteTo(wide, b);
        hn::StoreInterleaved2(Narrow(Third(hn::PromoteTo(wide, a), middle)),
                              Narrow(Third(hn::PromoteTo(wide, c), middle)), d, out + 2 * x);
    }
    return x;
}

int BoxDown(const std::array<const std::uint8_t*, 3>& rows, int count, std::uint16_t* sums)
{
    const D16 d;
    const int lanes = int(hn::Lanes(d));
    int x = 0;
    for (; x + lanes <= count; x += lanes)
        hn::StoreU(hn::Add(hn::Add(Wide(rows[0] + x), Wide(rows[1] + x)), Wide(rows[2] + x)), d, sums + x);
    return x;
}

// 7282 is 65536 / 9 rounded up, which is exact for sums up to 2299
int BoxAlong(const std::uint16_t* sums, int count, std::uint8_t* out)
{
    const D16 d;
    const int lanes = int(hn::Lanes(d));
    int x = 0;
    for (; x + lanes <= count; x += lanes) {
        const std::uint16_t* p = sums + x;
        const V16 sum = hn::Add(hn::Add(hn::LoadU(d, p), hn::LoadU(d, p + 1)), hn::LoadU(d, p + 2));
        const V16 rounded = hn::Add(sum, hn::Set(d, std::uint16_t{4}));
        hn::StoreU(Narrow(hn::MulHigh(rounded, hn::Set(d, std::uint16_t{7282}))), Half8(), out + x);
    }
    return x;
}

GreyRowKernels GreyKernels()
{
    return {BinomialDown, BinomialAlong, Halve, ThirdsDown, ThirdsAlong, BoxDown, BoxAlong};
}

}  // namespace HWY_NAMESPACE
}  // namespace scansteps::grey
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace scansteps::grey {
namespace {

// Leave every sample to the scalar code of the caller.
constexpr GreyRowKernels kScalar{
    [](const std::array<const std::uint8_t*, 5>&, int, std::uint8_t*) { return 0; },
    [](const std::uint8_t*, int, std::uint8_t*) { return 0; },
    [](const std::uint8_t*, const std::uint8_t*, int, std::uint8_t*) { return 0; },
    [](const std::uint8_t*, const std::uint8_t*, int, std::uint8_t*) { return 0; },
    [](const std::uint8_t*, int, std::uint8_t*) { return 0; },
    [](const std::array<const std::uint8_t*, 3>&, int, std::uint16_t*) { return 0; },
    [](const std::uint16_t*, int, std::uint8_t*) { return 0; },
};

std::uint8_t binomial(int a, int b, int c, int d, int e)
{
    return std::uint8_t((a + 4 * b + 6 * c + 4 * d + e + 8) >> 4);
}

std::uint8_t third(int twice, int once)
{
    return std::uint8_t((2 * twice + once + 1) / 3);
}

void binomial5With(GreyView image, GreyImage& out, const GreyRowKernels& kernels, Scratch scratch)
{
    out.reshape(image.width, image.height);
    if (out.samples.empty()) return;
    const int width = image.width;
    std::pmr::vector<std::uint8_t> padded(std::size_t(width) + 4, scratch);
    std::uint8_t* line = padded.data() + 2;
    for (int y = 0; y < image.height; ++y) {
        std::array<const std::uint8_t*, 5> r{};
        for (int i = 0; i < 5; ++i) r[std::size_t(i)] = image.row(std::clamp(y + i - 2, 0, image.height - 1));
        for (int x = kernels.binomialDown(r, width, line); x < width; ++x)
            line[x] = binomial(r[0][x], r[1][x], r[2][x], r[3][x], r[4][x]);
        line[-2] = line[-1] = line[0];
        line[width] = line[width + 1] = line[width - 1];
        std::uint8_t* to = out.row(y);
        for (int x = kernels.binomialAlong(line - 2, width, to); x < width; ++x)
            to[x] = binomial(line[x - 2], line[x - 1], line[x], line[x + 1], line[x + 2]);
    }
}

void halveWith(GreyView image, GreyImage& out, const GreyRowKernels& kernels)
{
    out.reshape(image.width / 2, image.height / 2);
    for (int y = 0; y < out.height; ++y) {
        const std::uint8_t* a = image.row(2 * y);
        const std::uint8_t* b = image.row(2 * y + 1);
        std::uint8_t* to = out.row(y);
        for (int x = kernels.halve(a, b, out.width, to); x < out.width; ++x)
            to[x] = std::uint8_t((a[2 * x] + a[2 * x + 1] + b[2 * x] + b[2 * x + 1] + 2) >> 2);
    }
}

void twoThirdsWith(GreyView image, GreyImage& out, const GreyRowKernels& kernels, Scratch scratch)
{
    const int pairs = image.width / 3;
    out.reshape(2 * pairs, 2 * (image.height / 3));
    std::pmr::vector<std::uint8_t> line(std::size_t(3 * pairs), scratch);
    for (int y = 0; y < out.height; ++y) {
        const std::uint8_t* twice = image.row(y / 2 * 3 + (y % 2 ? 2 : 0));
        const std::uint8_t* once = image.row(y / 2 * 3 + 1);
        for (int x = kernels.thirdsDown(twice, once, 3 * pairs, line.data()); x < 3 * pairs; ++x)
            line[std::size_t(x)] = third(twice[x], once[x]);
        std::uint8_t* to = out.row(y);
        for (int x = kernels.thirdsAlong(line.data(), pairs, to); x < pairs; ++x) {
            const std::uint8_t* p = line.data() + 3 * x;
            to[2 * x] = third(p[0], p[1]);
            to[2 * x + 1] = third(p[2], p[1]);
        }
    }
}

// Box filter of any size: running sums down the columns, and along the rows over these.
void boxByRunningSums(GreyView image, int window, GreyImage& out, Scratch scratch)
{
    out.reshape(image.width, image.height);
    const int half = window / 2;
    const int width = image.width;
    const auto source = [&](int y) { return image.row(std::clamp(y, 0, image.height - 1)); };
    std::pmr::vector<std::uint32_t> columns(std::size_t(width) + std::size_t(2 * half), scratch);
    std::uint32_t* column = columns.data() + half;
    for (int y = -half; y <= half; ++y)
        for (int x = 0; x < width; ++x) column[x] += source(y)[x];
    const auto area = std::uint32_t(window * window);
    const std::uint64_t inverse = (std::uint64_t{1} << 32) / area + 1;
    for (int y = 0; y < image.height; ++y) {
        std::fill_n(columns.data(), half, column[0]);
        std::fill_n(column + width, half, column[width - 1]);
        std::uint32_t sum = area / 2;
        for (int i = 0; i < window; ++i) sum += columns[std::size_t(i)];
        std::uint8_t* to = out.row(y);
        for (int x = 0;; ++x) {
            to[x] = std::uint8_t(sum * inverse >> 32);
            if (x + 1 == width) break;
            sum += column[x + 1 + half] - column[x - half];
        }
        const std::uint8_t* entering = source(y + half + 1);
        const std::uint8_t* leaving = source(y - half);
        for (int x = 0; x < width; ++x) column[x] += std::uint32_t(entering[x] - leaving[x]);
    }
}

// Box filter of 3 × 3. With running sums the response to blobs, of which this is a part, takes three times as
// long.
void boxOfThree(GreyView image, GreyImage& out, const GreyRowKernels& kernels, Scratch scratch)
{
    out.reshape(image.width, image.height);
    const int width = image.width;
    std::pmr::vector<std::uint16_t> padded(std::size_t(width) + 2, scratch);
    std::uint16_t* line = padded.data() + 1;
    for (int y = 0; y < image.height; ++y) {
        const std::array<const std::uint8_t*, 3> r{image.row(std::max(y - 1, 0)), image.row(y),
                                                   image.row(std::min(y + 1, image.height - 1))};
        for (int x = kernels.boxDown(r, width, line); x < width; ++x)
            line[x] = std::uint16_t(r[0][x] + r[1][x] + r[2][x]);
        line[-1] = line[0];
        line[width] = line[width - 1];
        std::uint8_t* to = out.row(y);
        for (int x = kernels.boxAlong(padded.data(), width, to); x < width; ++x)
            to[x] = std::uint8_t((line[x - 1] + line[x] + line[x + 1] + 4) / 9);
    }
}

GreyView boxMeanWith(GreyView image, int size, GreyImage& out, const GreyRowKernels& kernels, Scratch scratch)
{
    const int window = oddWindow(size);
    if (window == 1 || image.width <= 0 || image.height <= 0) return image;
    if (window == 3)
        boxOfThree(image, out, kernels, scratch);
    else
        boxByRunningSums(image, window, out, scratch);
    return out.view();
}

}  // namespace

int oddWindow(int size)
{
    return std::clamp(size | 1, 1, 31);
}

HWY_EXPORT(GreyKernels);

void binomial5(GreyView image, GreyImage& out, Scratch scratch)
{
    binomial5With(image, out, HWY_DYNAMIC_DISPATCH(GreyKernels)(), scratch);
}

void halve(GreyView image, GreyImage& out)
{
    halveWith(image, out, HWY_DYNAMIC_DISPATCH(GreyKernels)());
}

void twoThirds(GreyView image, GreyImage& out, Scratch scratch)
{
    twoThirdsWith(image, out, HWY_DYNAMIC_DISPATCH(GreyKernels)(), scratch);
}

GreyView boxMean(GreyView image, int size, GreyImage& out, Scratch scratch)
{
    return boxMeanWith(image, size, out, HWY_DYNAMIC_DISPATCH(GreyKernels)(), scratch);
}

namespace scalar {

GreyView boxMean(GreyView image, int size, GreyImage& out)
{
    return boxMeanWith(image, size, out, kScalar, {});
}

void binomial5(GreyView image, GreyImage& out)
{
    binomial5With(image, out, kScalar, {});
}

void halve(GreyView image, GreyImage& out)
{
    halveWith(image, out, kScalar);
}

void twoThirds(GreyView image, GreyImage& out)
{
    twoThirdsWith(image, out, kScalar, {});
}

}  // namespace scalar
}  // namespace scansteps::grey
#endif
