// Row kernels of the two corner responses and of the peak search, and the passes over the image that use
// them.
#include "corners/corner_response.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

#include "grey/grey_filters.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "corners/corner_response.cpp"
#include "hwy/foreach_target.h"  // IWYU pragma: keep
#include "hwy/highway.h"

#ifndef SCANSTEPS_CORNER_RESPONSE_ROWS
#define SCANSTEPS_CORNER_RESPONSE_ROWS
namespace scansteps::corners {

// Three rows of a padded image: [-1] and [width] may be read, and after them up to a whole vector.
struct ThreeRows
{
    const std::uint8_t* above;
    const std::uint8_t* here;
    const std::uint8_t* below;
};

// Rows of the three elements of a symmetric tensor: xx, yy, xy.
using TensorRow = std::array<std::int32_t*, 3>;

// Kernels for whole rows: a scalar version and one for each instruction set. They may write up to a whole
// vector past `width`.
struct RowKernels
{
    void (*gradientProducts)(ThreeRows rows, int width, TensorRow out);
    void (*replaceRow)(std::int32_t* sums, const std::int32_t* in, const std::int32_t* out, int count);
    void (*smallerEigenvalue)(TensorRow sums, int window, int width, float factor, float* out);
    void (*hessian)(ThreeRows rows, int width, float* out);
    void (*peakRow)(const float* row, int width, int y, std::ptrdiff_t stride, float threshold, int margin,
                    std::vector<Peak>& peaks);
};

}  // namespace scansteps::corners
#endif

HWY_BEFORE_NAMESPACE();
namespace scansteps::corners {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

using F32 = hn::ScalableTag<float>;
using I32 = hn::RebindToSigned<F32>;
using U8 = hn::Rebind<std::uint8_t, I32>;

HWY_INLINE hn::Vec<I32> Bytes(const std::uint8_t* from)
{
    return hn::PromoteTo(I32(), hn::LoadU(U8(), from));
}

void GradientProducts(ThreeRows rows, int width, TensorRow out)
{
    const I32 d;
    for (int x = 0; x < width; x += int(hn::Lanes(d))) {
        const auto nw = Bytes(rows.above + x - 1), n = Bytes(rows.above + x), ne = Bytes(rows.above + x + 1);
        const auto w = Bytes(rows.here + x - 1), e = Bytes(rows.here + x + 1);
        const auto sw = Bytes(rows.below + x - 1), s = Bytes(rows.below + x), se = Bytes(rows.below + x + 1);
        const auto rising = hn::Sub(se, nw);
        const auto falling = hn::Sub(ne, sw);
        const auto ew = hn::Sub(e, w);
        const auto sn = hn::Sub(s, n);
        const auto gx = hn::Add(hn::Add(rising, falling), hn::Add(ew, ew));
        const auto gy = hn::Add(hn::Sub(rising, falling), hn::Add(sn, sn));
        hn::StoreU(hn::Mul(gx, gx), d, out[0] + x);
        hn::StoreU(hn::Mul(gy, gy), d, out[1] + x);
        hn::StoreU(hn::Mul(gx, gy), d, out[2] + x);
    }
}

void ReplaceRow(std::int32_t* sums, const std::int32_t* in, const std::int32_t* out, int count)
{
    const I32 d;
    for (int x = 0; x < count; x += int(hn::Lanes(d))) {
        const auto change = hn::Sub(hn::LoadU(d, in + x), hn::LoadU(d, out + x));
        hn::StoreU(hn::Add(hn::LoadU(d, sums + x), change), d, sums + x);
    }
}

HWY_INLINE hn::Vec<I32> WindowSum(const std::int32_t* sums, int window)
{
    const I32 d;
    auto sum = hn::LoadU(d, sums);
    for (int i = 1; i < window; ++i) sum = hn::Add(sum, hn::LoadU(d, sums + i));
    return sum;
}

void SmallerEigenvalue(TensorRow sums, int window, int width, float factor, float* out)
{
    const F32 df;
    for (int x = 0; x < width; x += int(hn::Lanes(df))) {
        const auto xx = WindowSum(sums[0] + x, window);
        const auto yy = WindowSum(sums[1] + x, window);
        const auto xy = WindowSum(sums[2] + x, window);
        const auto difference = hn::ConvertTo(df, hn::Sub(xx, yy));
        const auto twice = hn::ConvertTo(df, hn::Add(xy, xy));
        const auto root = hn::Sqrt(hn::Add(hn::Mul(difference, difference), hn::Mul(twice, twice)));
        const auto smaller = hn::Sub(hn::ConvertTo(df, hn::Add(xx, yy)), root);
        hn::StoreU(hn::Max(hn::Mul(smaller, hn::Set(df, factor)), hn::Zero(df)), df, out + x);
    }
}

void Hessian(ThreeRows rows, int width, float* out)
{
    const F32 df;
    for (int x = 0; x < width; x += int(hn::Lanes(df))) {
        const auto nw = Bytes(rows.above + x - 1), n = Bytes(rows.above + x), ne = Bytes(rows.above + x + 1);
        const auto w = Bytes(rows.here + x - 1), o = Bytes(rows.here + x), e = Bytes(rows.here + x + 1);
        const auto sw = Bytes(rows.below + x - 1), s = Bytes(rows.below + x), se = Bytes(rows.below + x + 1);
        const auto corners = hn::Add(hn::Add(nw, ne), hn::Add(sw, se));
        const auto ew = hn::Add(e, w);
        const auto ns = hn::Add(n, s);
        const auto centre = hn::ShiftLeft<2>(o);
        // (1 -2 1) along one axis, (1 2 1) along the other
        const auto xx = hn::Add(hn::Sub(corners, centre), hn::ShiftLeft<1>(hn::Sub(ew, ns)));
        const auto yy = hn::Add(hn::Sub(corners, centre), hn::ShiftLeft<1>(hn::Sub(ns, ew)));
        const auto xy = hn::Sub(hn::Add(nw, se), hn::Add(ne, sw));
        const auto determinant = hn::Sub(hn::Mul(xx, yy), hn::Mul(xy, xy));
        hn::StoreU(hn::Max(hn::ConvertTo(df, determinant), hn::Zero(df)), df, out + x);
    }
}

void PeakRow(const float* row, int width, int y, std::ptrdiff_t stride, float threshold, int margin,
             std::vector<Peak>& peaks)
{
    const F32 d;
    const int lanes = int(hn::Lanes(d));
    const int end = width - margin;
    const auto limit = hn::Set(d, threshold);
    int x = margin;
    for (; x + lanes <= end; x += lanes) {
        const float* p = row + x;
        const auto v = hn::LoadU(d, p);
        auto mask = hn::Gt(v, limit);
        if (hn::AllFalse(d, mask)) continue;
        for (const std::ptrdiff_t before : {std::ptrdiff_t{-1}, -stride - 1, -stride, -stride + 1})
            mask = hn::And(mask, hn::Gt(v, hn::LoadU(d, p + before)));
        for (const std::ptrdiff_t after : {std::ptrdiff_t{1}, stride - 1, stride, stride + 1})
            mask = hn::And(mask, hn::Ge(v, hn::LoadU(d, p + after)));
        if (hn::AllFalse(d, mask)) continue;
        std::uint8_t bits[8] = {};
        hn::StoreMaskBits(d, mask, bits);
        for (int i = 0; i < lanes; ++i)
            if (bits[i / 8] >> (i % 8) & 1) peaks.push_back({x + i, y, p[i]});
    }
    for (; x < end; ++x) {
        const float* p = row + x;
        const float v = *p;
        if (v > threshold && v > p[-1] && v > p[-stride - 1] && v > p[-stride] && v > p[-stride + 1] &&
            v >= p[1] && v >= p[stride - 1] && v >= p[stride] && v >= p[stride + 1])
            peaks.push_back({x, y, v});
    }
}

RowKernels Kernels()
{
    return {GradientProducts, ReplaceRow, SmallerEigenvalue, Hessian, PeakRow};
}

}  // namespace HWY_NAMESPACE
}  // namespace scansteps::corners
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace scansteps::corners {
namespace scalar {
namespace {

void gradientProducts(ThreeRows r, int width, TensorRow out)
{
    for (int x = 0; x < width; ++x) {
        const int gx = r.above[x + 1] - r.above[x - 1] + 2 * (r.here[x + 1] - r.here[x - 1]) +
                       r.below[x + 1] - r.below[x - 1];
        const int gy =
            r.below[x - 1] - r.above[x - 1] + 2 * (r.below[x] - r.above[x]) + r.below[x + 1] - r.above[x + 1];
        out[0][x] = gx * gx;
        out[1][x] = gy * gy;
        out[2][x] = gx * gy;
    }
}

void replaceRow(std::int32_t* sums, const std::int32_t* in, const std::int32_t* out, int count)
{
    for (int x = 0; x < count; ++x) sums[x] += in[x] - out[x];
}

void smallerEigenvalue(TensorRow sums, int window, int width, float factor, float* out)
{
    for (int x = 0; x < width; ++x) {
        std::array<std::int32_t, 3> s{};
        for (std::size_t k = 0; k < 3; ++k)
            for (int i = 0; i < window; ++i) s[k] += sums[k][x + i];
        const auto difference = float(s[0] - s[1]);
        const auto twice = float(2 * s[2]);
        const float smaller = float(s[0] + s[1]) - std::sqrt(difference * difference + twice * twice);
        out[x] = std::max(smaller * factor, 0.0F);
    }
}

void hessian(ThreeRows r, int width, float* out)
{
    for (int x = 0; x < width; ++x) {
        const int xx = r.above[x - 1] - 2 * r.above[x] + r.above[x + 1] +
                       2 * (r.here[x - 1] - 2 * r.here[x] + r.here[x + 1]) + r.below[x - 1] - 2 * r.below[x] +
                       r.below[x + 1];
        const int yy = r.above[x - 1] - 2 * r.here[x - 1] + r.below[x - 1] +
                       2 * (r.above[x] - 2 * r.here[x] + r.below[x]) + r.above[x + 1] - 2 * r.here[x + 1] +
                       r.below[x + 1];
        const int xy = r.above[x - 1] - r.above[x + 1] - r.below[x - 1] + r.below[x + 1];
        out[x] = std::max(float(xx * yy - xy * xy), 0.0F);
    }
}

void peakRow(const float* row, int width, int y, std::ptrdiff_t stride, float threshold, int margin,
             std::vector<Peak>& peaks)
{
    for (int x = margin; x < width - margin; ++x) {
        const float v = row[x];
        bool peak = v > threshold;
        for (const std::ptrdiff_t before : {std::ptrdiff_t{-1}, -stride - 1, -stride, -stride + 1})
            peak = peak && v > row[x + before];
        for (const std::ptrdiff_t after : {std::ptrdiff_t{1}, stride - 1, stride, stride + 1})
            peak = peak && v >= row[x + after];
        if (peak) peaks.push_back({x, y, v});
    }
}

constexpr RowKernels kKernels{gradientProducts, replaceRow, smallerEigenvalue, hessian, peakRow};

}  // namespace
}  // namespace scalar

namespace {

constexpr int kVector = 64;  // no vector has more lanes, whatever their type

// The image with a border of one pixel, and after each row space for a whole vector.
class PaddedImage
{
  public:
    PaddedImage(grey::GreyView image, Scratch scratch)
        : stride_(image.width + 2 + kVector),
          samples_(std::size_t(stride_) * std::size_t(image.height + 2), scratch)
    {
        for (int y = 0; y < image.height; ++y) std::copy_n(image.row(y), image.width, row(y));
        for (int y = 0; y < image.height; ++y) {
            row(y)[-1] = row(y)[0];
            std::fill_n(row(y) + image.width, 1 + kVector, row(y)[image.width - 1]);
        }
        std::copy_n(row(0) - 1, stride_, row(-1) - 1);
        std::copy_n(row(image.height - 1) - 1, stride_, row(image.height) - 1);
    }
    ThreeRows rows(int y) const { return {row(y - 1), row(y), row(y + 1)}; }

  private:
    const std::uint8_t* row(int y) const { return samples_.data() + std::ptrdiff_t{y + 1} * stride_ + 1; }
    std::uint8_t* row(int y) { return samples_.data() + std::ptrdiff_t{y + 1} * stride_ + 1; }

    std::ptrdiff_t stride_;
    ScratchArray<std::uint8_t> samples_;
};

// The row buffer that kernels write a response row to: the response itself where a vector written past the
// row still lies in it, to be overwritten by the next row, otherwise a spare row.
class ResponseRows
{
  public:
    ResponseRows(std::span<float> response, int width, Scratch scratch)
        : response_(response), width_(std::size_t(width)), spare_(width_ + kVector, scratch)
    {
    }
    float* begin(int y)
    {
        const std::size_t at = std::size_t(y) * width_;
        direct_ = at + width_ + kVector <= response_.size();
        return direct_ ? response_.data() + at : spare_.data();
    }
    void end(int y)
    {
        if (!direct_)
            std::copy_n(spare_.data(), width_, response_.data() + std::ptrdiff_t(std::size_t(y) * width_));
    }

  private:
    std::span<float> response_;
    std::size_t width_;
    ScratchArray<float> spare_;
    bool direct_ = false;
};

// Products of derivatives for the rows in the window, and their sums down the columns.
class TensorWindow
{
  public:
    TensorWindow(const PaddedImage& image, int width, int height, int window, const RowKernels& kernels,
                 Scratch scratch)
        : image_(image),
          kernels_(kernels),
          width_(width),
          height_(height),
          window_(window),
          length_(width + 2 * (window / 2)),
          stride_(std::ptrdiff_t{length_} + kVector),
          rows_(std::size_t(stride_) * 3 * std::size_t(window + 2), scratch)
    {
        for (int y = -(window / 2); y < window / 2; ++y) advance(y);
    }
    TensorRow sums(int y)
    {
        advance(y + window_ / 2);
        return slot(window_ + 1);
    }

  private:
    TensorRow slot(int i)
    {
        std::int32_t* first = rows_.data() + std::ptrdiff_t{i} * 3 * stride_;
        return {first, first + stride_, first + 2 * stride_};
    }
    void advance(int y)
    {
        const TensorRow in = slot(next_);
        next_ = next_ == window_ ? 0 : next_ + 1;
        const TensorRow out = slot(next_);  // the row from `window` rows earlier, zeros at first
        const TensorRow sums = slot(window_ + 1);
        const int half = window_ / 2;
        const int row = std::clamp(y, 0, height_ - 1);
        kernels_.gradientProducts(image_.rows(row), width_, {in[0] + half, in[1] + half, in[2] + half});
        for (std::size_t k = 0; k < 3; ++k) {
            std::fill_n(in[k], half, in[k][half]);
            std::fill_n(in[k] + half + width_, half, in[k][half + width_ - 1]);
            kernels_.replaceRow(sums[k], in[k], out[k], length_);
        }
    }

    const PaddedImage& image_;
    const RowKernels& kernels_;
    int width_, height_, window_, length_;
    std::ptrdiff_t stride_;
    int next_ = 0;
    std::pmr::vector<std::int32_t> rows_;
};

void respond(grey::GreyView image, const ResponseSettings& settings, std::span<float> response,
             const RowKernels& kernels, Scratch scratch)
{
    if (image.width <= 0 || image.height <= 0) return;
    const int window = grey::oddWindow(settings.lowPass2);
    ResponseRows rows(response.first(std::size_t(image.width) * std::size_t(image.height)), image.width,
                      scratch);
    const bool tensor = settings.kind == CornerKind::minEigenvalue;
    grey::GreyImage first, second;
    const grey::GreyView smooth = grey::boxMean(grey::boxMean(image, settings.lowPass1, first, scratch),
                                                tensor ? 1 : window, second, scratch);
    const PaddedImage padded(smooth, scratch);
    if (!tensor) {
        for (int y = 0; y < image.height; ++y) {
            kernels.hessian(padded.rows(y), image.width, rows.begin(y));
            rows.end(y);
        }
        return;
    }
    const float factor = 0.5F / (64.0F * float(window * window));
    TensorWindow tensors(padded, image.width, image.height, window, kernels, scratch);
    for (int y = 0; y < image.height; ++y) {
        kernels.smallerEigenvalue(tensors.sums(y), window, image.width, factor, rows.begin(y));
        rows.end(y);
    }
}

void peaksOf(std::span<const float> plane, int width, int height, int margin, float threshold,
             std::vector<Peak>& peaks, const RowKernels& kernels)
{
    peaks.clear();
    margin = std::max(margin, 1);
    for (int y = margin; y < height - margin; ++y)
        kernels.peakRow(plane.data() + std::ptrdiff_t{y} * width, width, y, width, threshold, margin, peaks);
}

// Grey levels per unit of the root of the response. The Hessian is computed on smoother images, where
// responses are lower.
constexpr float kTensorScale = 6.4F;
constexpr float kHessianScale = 11.0F;

}  // namespace

float scoreOf(CornerKind kind, float response)
{
    return kind == CornerKind::hessian ? kHessianScale * std::sqrt(std::sqrt(response))
                                       : kTensorScale * std::sqrt(response);
}

float responseOf(CornerKind kind, float score)
{
    const float root = std::max(score, 0.0F) / (kind == CornerKind::hessian ? kHessianScale : kTensorScale);
    return kind == CornerKind::hessian ? root * root * root * root : root * root;
}

HWY_EXPORT(Kernels);

void cornerResponse(grey::GreyView image, const ResponseSettings& settings, std::span<float> response,
                    Scratch scratch)
{
    respond(image, settings, response, HWY_DYNAMIC_DISPATCH(Kernels)(), scratch);
}

void findPeaks(std::span<const float> plane, int width, int height, int margin, float threshold,
               std::vector<Peak>& peaks)
{
    peaksOf(plane, width, height, margin, threshold, peaks, HWY_DYNAMIC_DISPATCH(Kernels)());
}

namespace scalar {

void cornerResponse(grey::GreyView image, const ResponseSettings& settings, std::span<float> response)
{
    respond(image, settings, response, kKernels, {});
}

void findPeaks(std::span<const float> plane, int width, int height, int margin, float threshold,
               std::vector<Peak>& peaks)
{
    peaksOf(plane, width, height, margin, threshold, peaks, kKernels);
}

}  // namespace scalar
}  // namespace scansteps::corners
#endif
