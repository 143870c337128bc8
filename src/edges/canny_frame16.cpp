// Row sources that convert and filter 16-bit samples for the detector, and the conversion back to samples.
#include "edges/canny_frame16.h"

#include <algorithm>

#include "core/sample_values.h"
#include "edges/canny_detector.h"
#include "scansteps/error.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "edges/canny_frame16.cpp"
#include "hwy/foreach_target.h"  // IWYU pragma: keep
#include "hwy/highway.h"
//
#include "edges/canny-inl.h"

HWY_BEFORE_NAMESPACE();
namespace scansteps::edges {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

using D = hn::ScalableTag<float>;

// (sample & mask) - offset. Returns the number of samples converted; the caller does the rest.
std::size_t SamplesToFloat(const std::uint16_t* HWY_RESTRICT src, float* HWY_RESTRICT dst, std::size_t count,
                           std::uint16_t mask, std::int32_t offset)
{
    const D d;
    const hn::RebindToSigned<D> di;
    const hn::Rebind<std::uint16_t, D> du;
    std::size_t i = 0;
    for (; i + hn::Lanes(d) <= count; i += hn::Lanes(d)) {
        const auto wide = hn::PromoteTo(di, hn::And(hn::LoadU(du, src + i), hn::Set(du, mask)));
        hn::StoreU(hn::ConvertTo(d, hn::Sub(wide, hn::Set(di, offset))), d, dst + i);
    }
    return i;
}

// Values are not negative, so they can be truncated before the offset is added. Returns the number of samples
// converted.
std::size_t EdgesTo16(const float* HWY_RESTRICT src, std::uint16_t* HWY_RESTRICT dst, std::size_t count)
{
    const D d;
    const hn::RebindToSigned<D> di;
    const hn::Rebind<std::uint16_t, D> du;
    std::size_t i = 0;
    for (; i + hn::Lanes(d) <= count; i += hn::Lanes(d)) {
        const auto whole = TruncateInRange(hn::LoadU(d, src + i));
        hn::StoreU(hn::DemoteTo(du, hn::Add(whole, hn::Set(di, kOffset16Zero))), du, dst + i);
    }
    return i;
}

// Sums of three neighbours along a line whose outermost samples are repeated.
void BoxAlongX(const float* HWY_RESTRICT line, float* HWY_RESTRICT dst, std::size_t count)
{
    const D d;
    for (std::size_t x = 0; x < count; x += hn::Lanes(d)) {
        const auto at = [&](int k)
                            HWY_ATTR { return hn::LoadU(d, line + (static_cast<std::ptrdiff_t>(x) + k)); };
        hn::StoreU(Box<1>(at), d, dst + x);
    }
}

// Mean of three rows of such sums.
void BoxAlongY(const float* const* rows, float weight, float* HWY_RESTRICT dst, std::size_t count)
{
    const D d;
    for (std::size_t x = 0; x < count; x += hn::Lanes(d)) {
        const auto sum = Box<1>([&](int k) HWY_ATTR { return hn::LoadU(d, rows[1 + k] + x); });
        hn::StoreU(hn::Mul(sum, hn::Set(d, weight)), d, dst + x);
    }
}

}  // namespace HWY_NAMESPACE
}  // namespace scansteps::edges
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace scansteps::edges {

HWY_EXPORT(SamplesToFloat);
HWY_EXPORT(EdgesTo16);
HWY_EXPORT(BoxAlongX);
HWY_EXPORT(BoxAlongY);

namespace {

float sampleToFloat(std::uint16_t sample, grey::SampleCoding coding)
{
    return coding == grey::SampleCoding::Yuyv16 ? static_cast<float>(sample & 255)
                                                : static_cast<float>(int{sample} - kOffset16Zero);
}

std::uint16_t edgeToSample(float value)
{
    return static_cast<std::uint16_t>(static_cast<std::int32_t>(static_cast<double>(value) + kOffset16Zero));
}

void checkFrame(std::size_t samples, std::size_t width, std::size_t height)
{
    if (width != 0 && height > samples / width) fail("frame smaller than width x height");
    if (width > UINT32_MAX || height > UINT32_MAX) fail("frame size out of range");
}

// The rows of a frame.
class FrameRows : public FloatRowSource
{
  public:
    FrameRows(const std::uint16_t* frame, std::size_t width, grey::SampleCoding coding)
        : frame_(frame), width_(width), coding_(coding)
    {
    }
    void begin(Columns columns) override { columns_ = columns; }
    void read(std::size_t y, float* line) override
    {
        samplesToFloats({frame_ + y * width_ + columns_.first, columns_.count}, {line, columns_.count},
                        coding_);
    }
    PrefetchHint upcoming(std::size_t y) const override
    {
        return {reinterpret_cast<const char*>(frame_ + y * width_ + columns_.first),
                64 * sizeof(std::uint16_t)};
    }

  private:
    const std::uint16_t* frame_;
    std::size_t width_;
    grey::SampleCoding coding_;
    Columns columns_;
};

// The rows of another source after a 3 x 3 box filter. Keeps the sums along x of three rows.
class LowPassRows : public FloatRowSource
{
  public:
    void connect(FloatRowSource& source, float* firstRow, std::size_t pitch, std::size_t width,
                 std::size_t height)
    {
        source_ = &source;
        line_ = firstRow;
        sums_ = {firstRow + pitch, pitch, 3};
        width_ = width;
        height_ = height;
    }

    void begin(Columns columns) override
    {
        columns_ = columns;
        taken_ = 0;
        const Columns wide = columns.widened(1, width_);
        before_ = static_cast<std::ptrdiff_t>(columns.first - wide.first);
        read_ = static_cast<std::ptrdiff_t>(wide.count);
        source_->begin(wide);
    }

    void read(std::size_t y, float* line) override
    {
        const auto count = static_cast<std::ptrdiff_t>(roundUp(columns_.count, 16));
        for (; taken_ <= std::min(y + 1, height_ - 1); ++taken_) {
            source_->read(taken_, line_ - before_);
            repeatEdges(line_, -before_, read_ - before_, -1, count + 1);
            HWY_DYNAMIC_DISPATCH(BoxAlongX)(line_, sums_.slot(taken_), static_cast<std::size_t>(count));
        }
        const float* rows[3];
        sums_.around(y, height_, 1, rows);
        HWY_DYNAMIC_DISPATCH(BoxAlongY)(rows, boxWeight(3), line, static_cast<std::size_t>(count));
    }

    PrefetchHint upcoming(std::size_t y) const override
    {
        return source_->upcoming(std::min(y + 1, height_ - 1));
    }

  private:
    FloatRowSource* source_ = nullptr;
    float* line_ = nullptr;
    RowRing sums_;
    std::size_t width_ = 0, height_ = 0, taken_ = 0;
    Columns columns_;
    std::ptrdiff_t before_ = 0, read_ = 0;  // columns read to the left of the strip, and in total
};

}  // namespace

void samplesToFloats(std::span<const std::uint16_t> samples, std::span<float> row, grey::SampleCoding coding)
{
    const bool video = coding == grey::SampleCoding::Yuyv16;
    for (std::size_t x = HWY_DYNAMIC_DISPATCH(SamplesToFloat)(
             samples.data(), row.data(), samples.size(), video ? 0xFF : 0xFFFF, video ? 0 : kOffset16Zero);
         x < samples.size(); ++x)
        row[x] = sampleToFloat(samples[x], coding);
}

void floatsToSamples(std::span<const float> row, std::span<std::uint16_t> samples)
{
    for (std::size_t x = HWY_DYNAMIC_DISPATCH(EdgesTo16)(row.data(), samples.data(), row.size());
         x < row.size(); ++x)
        samples[x] = edgeToSample(row[x]);
}

void frame16ToPlane(std::span<const std::uint16_t> frame, FloatPlane& plane, std::size_t width,
                    std::size_t height, grey::SampleCoding coding)
{
    checkFrame(frame.size(), width, height);
    plane.resize(static_cast<std::uint32_t>(width), static_cast<std::uint32_t>(height));
    for (std::size_t y = 0; y < height; ++y)
        samplesToFloats(frame.subspan(y * width, width), plane.samples(y), coding);
}

void edgesToFrame16(const EdgeBits& edges, std::span<std::uint16_t> frame)
{
    checkFrame(frame.size(), edges.width(), edges.height());
    expandEdges(edges, frame.data(), edges.width(), edges.height());
}

namespace {

EdgeBits& detectIn(FloatRowSource& source, std::size_t width, std::size_t height,
                   const CannyThresholds& thresholds, int aperture, CannyWorkspace::Buffers& buffers)
{
    if (width == 0 || height == 0)
        buffers.bits.resize(width, height);
    else
        detectEdges(source, width, height, thresholds, aperture, buffers);
    return buffers.bits;
}

}  // namespace

EdgeBits& detectFiltered16(const FloatPlane& plane, double low, double high, int aperture,
                           CannyWorkspace& work)
{
    PlaneRows rows(plane);
    return detectIn(rows, plane.width(), plane.height(), {low, high, aperture}, aperture, work.buffers());
}

EdgeBits& detectFrame16(std::span<const std::uint16_t> frame, std::size_t width, std::size_t height,
                        grey::SampleCoding coding, int lowPasses, double low, double high, int aperture,
                        CannyWorkspace& work)
{
    checkFrame(frame.size(), width, height);
    const CannyThresholds thresholds(low, high, aperture);
    CannyWorkspace::Buffers& buffers = work.buffers();
    FrameRows samples(frame.data(), width, coding);
    PlaneRows plane(buffers.filtered);
    LowPassRows lastPass;
    FloatRowSource* source = &samples;
    if (lowPasses > 1) {
        frame16ToPlane(frame, buffers.filtered, width, height, coding);
        for (int k = 1; k < lowPasses; ++k) lowPass(buffers.filtered, 3, &buffers.memory);
        source = &plane;
    }
    // One pass without a float image makes the whole 1.1 (640 x 480) to 1.3 times (3840 x 2160) as fast.
    if (lowPasses > 0 && width > 0) {
        FloatPlane& rows = buffers.lowPassRows;  // a line and three rows of sums
        rows.resize(static_cast<std::uint32_t>(stripWidth(width) + 5 * kMargin), 4);
        lastPass.connect(*source, rows.row(0) + kMargin, rows.stride(), width, height);
        source = &lastPass;
    }
    return detectIn(*source, width, height, thresholds, aperture, buffers);
}

void cannyFrame16(std::span<std::uint16_t> frame, std::size_t width, std::size_t height,
                  grey::SampleCoding coding, int lowPasses, double low, double high, int aperture,
                  CannyWorkspace& work)
{
    edgesToFrame16(detectFrame16(frame, width, height, coding, lowPasses, low, high, aperture, work), frame);
}

namespace scalar {

void frame16ToPlane(std::span<const std::uint16_t> frame, FloatPlane& plane, std::size_t width,
                    std::size_t height, grey::SampleCoding coding)
{
    checkFrame(frame.size(), width, height);
    plane.resize(static_cast<std::uint32_t>(width), static_cast<std::uint32_t>(height));
    for (std::size_t y = 0; y < height; ++y)
        for (std::size_t x = 0; x < width; ++x) plane.row(y)[x] = sampleToFloat(frame[y * width + x], coding);
}

void edgesToFrame16(const FloatPlane& edges, std::span<std::uint16_t> frame)
{
    checkFrame(frame.size(), edges.width(), edges.height());
    for (std::size_t y = 0; y < edges.height(); ++y)
        for (std::size_t x = 0; x < edges.width(); ++x)
            frame[y * edges.width() + x] = edgeToSample(edges.row(y)[x]);
}

void cannyFrame16(std::span<std::uint16_t> frame, std::size_t width, std::size_t height,
                  grey::SampleCoding coding, int lowPasses, double low, double high, int aperture)
{
    FloatPlane plane;
    scalar::frame16ToPlane(frame, plane, width, height, coding);
    for (int k = 0; k < lowPasses; ++k) scalar::lowPass(plane, 3);
    scalar::Canny(plane, plane, low, high, aperture);
    scalar::edgesToFrame16(plane, frame);
}

}  // namespace scalar
}  // namespace scansteps::edges
#endif
