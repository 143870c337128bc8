// Steps ccanny2a, ccanny2b and ccanny2c: edges as polylines, as borders of regions, and to a fraction of a
// pixel.
#include <algorithm>
#include <cmath>
#include <cstring>

#include "features/canny_settings.h"
#include "features/edge_regions.h"
#include "features/polyline.h"
#include "features/polyline_record.h"
#include "features/subpixel_edges.h"
#include "framework/step_factory.h"
#include "scansteps/frame.h"

namespace scansteps {
namespace {

// What the three share: settings, buffers, and the frame's way to floats and back.
class TracingCanny : public CPUBase
{
  public:
    void init(varitype& params) override
    {
        const Settings settings(*this, params);
        settings_ = CannySettings::read(settings);
        clear_ = settings.integer("OCV.clear");
        const std::uint32_t code = formatOrMismatch(*this, params, format::kF1x32);
        in_.create(settings_.width, settings_.height, 1, code);
        spare_.create(settings_.width, settings_.height, 1, code);
        forward(*this, params);
    }

    void process(varitype& params) override
    {
        FrameScope frame(*this, params, in_, FrameCheck::Samples16);
        const auto samples = frame.input<std::uint16_t>();
        frame16ToPlane(samples, plane_, width(), height(), settings_.meaning);
        if (clear_ != 0) std::ranges::fill(samples, std::uint16_t{32768});
        for (int i = 0; i < settings_.lowPasses; ++i) lowPass(plane_, 3);
        settings_.print();
        findEdges();
        print::field(std::int64_t(width()), " a.getX()\n");
        print::field(std::int64_t(height()), " a.getY()\n");
        describe(frame.record());
        for (std::size_t i = 0; i < map_.size(); ++i) samples[i] = map_[i] != 0 ? 33023 : 32768;
        frame.forward();
    }

  protected:
    /// Fills `map_` from `plane_`.
    virtual void findEdges()
    {
        Canny(plane_, edges_, double{settings_.low}, double{settings_.high}, settings_.order, work_);
        map_.resize(width() * height());
        for (std::size_t y = 0; y < height(); ++y)
            std::ranges::transform(edges_.samples(y), map_.begin() + std::ptrdiff_t(y * width()),
                                   [](float v) { return std::uint8_t(v != 0 ? 255 : 0); });
    }
    /// Adds to the record what the edges of `map_` amount to, and prints it.
    virtual void describe(varitype& record) = 0;

    void tracePolylinesInto(varitype& record, std::span<const Vertex> positions = {})
    {
        const std::vector<Polyline> lines =
            tracePolylines(map_, settings_.width, settings_.height, kPolylineTolerance, positions);
        print::field(std::int64_t(lines.size()), " fvertsArray.size()\n");
        insertPolylines(record, lines);
    }

    std::size_t width() const { return std::size_t(settings_.width); }
    std::size_t height() const { return std::size_t(settings_.height); }

    CannySettings settings_;
    FloatPlane plane_, edges_;
    std::vector<std::uint8_t> map_;

  private:
    int clear_ = 0;
    CannyWorkspace work_;
    TextureSet in_, spare_;  // the second is kept for hosts that count on two handles a step
};

}  // namespace

class CpuCanny2a final : public TracingCanny
{
  public:
    const char* getName() override { return "CpuCanny2a"; }

  private:
    void describe(varitype& record) override
    {
        const std::size_t rim = std::min(2 * width(), map_.size());
        std::fill_n(map_.begin(), rim, std::uint8_t{0});
        std::fill_n(map_.rbegin(), rim, std::uint8_t{0});
        tracePolylinesInto(record);
    }
};

class CpuCanny2b final : public TracingCanny
{
  public:
    const char* getName() override { return "CpuCanny2b"; }

  private:
    void describe(varitype& record) override
    {
        fillGaps(map_, settings_.width, settings_.height, kGapReach);
        const auto regions = labelRegions(map_, settings_.width, settings_.height, labels_);
        Array table(Kind::Float, 8, std::uint32_t(regions.size()));
        float* row = table.elements<float>().data();
        for (const EnclosedRegion& r : regions) {
            const float values[] = {float(r.x),   float(r.y),     float(r.area),   float(r.left),
                                    float(r.top), float(r.right), float(r.bottom), r.open ? 1.0F : 0.0F};
            row = std::ranges::copy(values, row).out;
        }
        print::field(std::int64_t(regions.size()), " regions.size()\n");
        record.insert("regions", std::move(table));
    }

    std::vector<std::int32_t> labels_;
};

class CpuCanny2c final : public TracingCanny
{
  public:
    const char* getName() override { return "CpuCanny2c"; }

  private:
    void findEdges() override
    {
        subpixelEdges(plane_, double{settings_.low}, double{settings_.high}, settings_.order, map_,
                      positions_);
    }
    void describe(varitype& record) override { tracePolylinesInto(record, positions_); }

    std::vector<Vertex> positions_;
};

SCANSTEPS_STEP(CpuCanny2a)
SCANSTEPS_STEP(CpuCanny2b)
SCANSTEPS_STEP(CpuCanny2c)

}  // namespace scansteps
