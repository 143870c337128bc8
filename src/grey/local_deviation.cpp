// Local standard deviation from running integer sums, vectorised along the rows.
#include "grey/local_deviation.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <vector>

#include "core/sample_values.h"
#include "grey/grey_filters.h"
#include "scansteps/error.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "grey/local_deviation.cpp"
#include "hwy/foreach_target.h"  // IWYU pragma: keep
#include "hwy/highway.h"

#ifndef SCANSTEPS_LOCAL_DEVIATION_ROWS
#define SCANSTEPS_LOCAL_DEVIATION_ROWS
namespace scansteps::grey {

// Kernels for whole rows: a scalar version and one for each instruction set.
struct DeviationKernels
{
    // Adds samples and their squares to the sums of their columns, or subtracts them.
    void (*add)(const std::int32_t* values, bool subtract, std::int64_t* sum, std::int64_t* square,
                std::size_t count);
    // 32768 + root × factor, truncated and clamped to 32768 ... 65535.
    void (*roots)(const double* squares, double factor, std::uint16_t* out, std::size_t count);
};

inline void addRowScalar(const std::int32_t* values, bool subtract, std::int64_t* sum, std::int64_t* square,
                         std::size_t count)
{
    const std::int64_t sign = subtract ? -1 : 1;
    for (std::size_t x = 0; x < count; ++x) {
        sum[x] += sign * values[x];
        square[x] += sign * (std::int64_t{values[x]} * values[x]);
    }
}

inline void rootsScalar(const double* squares, double factor, std::uint16_t* out, std::size_t count)
{
    for (std::size_t x = 0; x < count; ++x) {
        const double deviation = std::sqrt(squares[x]) * factor;
        out[x] = std::uint16_t(kOffset16Zero + (deviation < 32767 ? int(std::max(deviation, 0.0)) : 32767));
    }
}

}  // namespace scansteps::grey
#endif

HWY_BEFORE_NAMESPACE();
namespace scansteps::grey {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

void AddDeviationRow(const std::int32_t* values, bool subtract, std::int64_t* sum, std::int64_t* square,
                     std::size_t count)
{
    const hn::ScalableTag<std::int64_t> wide;
    const hn::Rebind<std::int32_t, decltype(wide)> narrow;
    const auto sign = hn::Set(narrow, subtract ? -1 : 1);
    std::size_t x = 0;
    for (; x + hn::Lanes(wide) <= count; x += hn::Lanes(wide)) {
        const auto v = hn::LoadU(narrow, values + x);
        const auto signedValue = hn::Mul(v, sign);  // samples are -32768 to 32767: squares fit as well
        hn::StoreU(hn::Add(hn::LoadU(wide, sum + x), hn::PromoteTo(wide, signedValue)), wide, sum + x);
        hn::StoreU(hn::Add(hn::LoadU(wide, square + x), hn::PromoteTo(wide, hn::Mul(signedValue, v))), wide,
                   square + x);
    }
    addRowScalar(values + x, subtract, sum + x, square + x, count - x);
}

void DeviationRoots(const double* squares, double factor, std::uint16_t* out, std::size_t count)
{
    const hn::ScalableTag<double> d;
    const hn::Rebind<std::int32_t, decltype(d)> d32;
    const hn::Rebind<std::uint16_t, decltype(d)> d16;
    const auto by = hn::Set(d, factor);
    const auto limit = hn::Set(d, 32767.0);
    std::size_t x = 0;
    for (; x + hn::Lanes(d) <= count; x += hn::Lanes(d)) {
        const auto deviation = hn::Mul(hn::Sqrt(hn::LoadU(d, squares + x)), by);
        const auto limited = hn::Max(hn::IfThenElse(hn::Lt(deviation, limit), deviation, limit), hn::Zero(d));
        const auto whole = hn::Add(hn::DemoteTo(d32, limited), hn::Set(d32, kOffset16Zero));
        hn::StoreU(hn::DemoteTo(d16, whole), d16, out + x);
    }
    rootsScalar(squares + x, factor, out + x, count - x);
}

DeviationKernels DeviationRows()
{
    return {AddDeviationRow, DeviationRoots};
}

}  // namespace HWY_NAMESPACE
}  // namespace scansteps::grey
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace scansteps::grey {
namespace {

// Sample values of the rows in the window, and the sums of its columns.
class ColumnSums
{
  public:
    ColumnSums(std::span<const std::uint16_t> frame, int width, int height, SampleCoding coding, int window,
               const DeviationKernels& kernels, Scratch scratch)
        : frame_(frame),
          width_(std::size_t(width)),
          height_(height),
          window_(window),
          half_(window / 2),
          coding_(coding),
          kernels_(kernels),
          kept_(std::size_t(window + 1) * width_, scratch),
          sums_(width_ + std::size_t(window), scratch),
          squares_(sums_.size(), scratch)
    {
        for (int y = 0; y < half_; ++y) keep(y);
        for (int y = -half_; y < half_; ++y) add(y, false);
    }

    /// Moves the window to row y and extends the sums by half a window to both sides. Rows are entered in
    /// ascending order; row y of the frame may be overwritten afterwards.
    void enter(int y)
    {
        keep(y + half_);
        add(y + half_, false);
        for (std::pmr::vector<std::int64_t>* s : {&sums_, &squares_}) {
            std::fill_n(s->begin(), half_, (*s)[std::size_t(half_)]);
            std::fill_n(s->begin() + std::ptrdiff_t(width_) + half_, half_,
                        (*s)[width_ + std::size_t(half_) - 1]);
        }
    }
    /// Removes the uppermost row of the window around row y.
    void leave(int y) { add(y - half_, true); }
    const std::int64_t* sums() const { return sums_.data(); }
    const std::int64_t* squares() const { return squares_.data(); }

  private:
    std::int32_t* row(int y)
    {
        return kept_.data() + std::size_t(std::clamp(y, 0, height_ - 1) % (window_ + 1)) * width_;
    }
    void keep(int y)
    {
        if (y >= height_) return;
        const std::uint16_t* from = frame_.data() + std::size_t(y) * width_;
        std::int32_t* to = row(y);
        for (std::size_t x = 0; x < width_; ++x)
            to[x] = coding_ == SampleCoding::Yuyv16 ? from[x] & 255 : from[x] - kOffset16Zero;
    }
    void add(int y, bool subtract)
    {
        kernels_.add(row(y), subtract, sums_.data() + half_, squares_.data() + half_, width_);
    }

    std::span<const std::uint16_t> frame_;
    std::size_t width_;
    int height_, window_, half_;
    SampleCoding coding_;
    const DeviationKernels& kernels_;
    std::pmr::vector<std::int32_t> kept_;
    std::pmr::vector<std::int64_t> sums_, squares_;
};

void deviate(std::span<std::uint16_t> frame, int width, int height, SampleCoding coding, int size, float gain,
             const DeviationKernels& kernels, Scratch scratch)
{
    if (width <= 0 || height <= 0) return;
    const auto w = std::size_t(width);
    if (frame.size() < w * std::size_t(height)) fail("frame smaller than its size says");
    const auto window = std::size_t(oddWindow(size));
    ColumnSums columns(frame, width, height, coding, int(window), kernels, scratch);
    const auto n = std::int64_t(window * window);
    const double factor = double(gain) / double(n);
    std::pmr::vector<double> variances(w, scratch);
    for (int y = 0; y < height; ++y) {
        columns.enter(y);
        const std::int64_t* sum = columns.sums();
        const std::int64_t* square = columns.squares();
        std::int64_t s = 0;
        std::int64_t q = 0;
        for (std::size_t x = 0; x + 1 < window; ++x) s += sum[x], q += square[x];
        for (std::size_t x = 0; x < w; ++x) {
            s += sum[x + window - 1];
            q += square[x + window - 1];
            variances[x] = double(n * q - s * s);
            s -= sum[x];
            q -= square[x];
        }
        kernels.roots(variances.data(), factor, frame.data() + std::size_t(y) * w, w);
        columns.leave(y);
    }
}

constexpr DeviationKernels kScalar{addRowScalar, rootsScalar};

}  // namespace

HWY_EXPORT(DeviationRows);

void localDeviation(std::span<std::uint16_t> frame, int width, int height, SampleCoding coding, int size,
                    float gain, Scratch scratch)
{
    deviate(frame, width, height, coding, size, gain, HWY_DYNAMIC_DISPATCH(DeviationRows)(), scratch);
}

namespace scalar {

void localDeviation(std::span<std::uint16_t> frame, int width, int height, SampleCoding coding, int size,
                    float gain)
{
    deviate(frame, width, height, coding, size, gain, kScalar, {});
}

}  // namespace scalar
}  // namespace scansteps::grey
#endif
