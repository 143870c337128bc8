// Steps ccanny2a, ccanny2b and ccanny2c: edges as polylines, as borders of regions, and to a fraction of a
// pixel.
#include <algorithm>

#include "edges/canny_settings.h"
#include "edges/edge_regions.h"
#include "edges/polyline.h"
#include "edges/polyline_record.h"
#include "edges/subpixel_edges.h"
#include "core/step_factory.h"
#include "scansteps/frame.h"

namespace scansteps {
namespace {

// What the three share: settings, buffers, and the way from frame to edges and back.
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
        settings_.print();
        EdgeBits& edges = findEdges(samples);
        if (clear_ != 0) std::ranges::fill(samples, std::uint16_t{32768});
        print::field(std::int64_t(in_.width()), " a.getX()\n");
        print::field(std::int64_t(in_.height()), " a.getY()\n");
        describe(edges, frame.record());
        edgesToFrame16(edges, samples);
        frame.forward();
    }

  protected:
    virtual EdgeBits& findEdges(std::span<const std::uint16_t> frame)
    {
        return detectFrame16(frame, in_.width(), in_.height(), settings_.meaning, settings_.lowPasses,
                             double{settings_.low}, double{settings_.high}, settings_.order, work_);
    }
    /// Adds to the record what the edges amount to, and prints it.
    virtual void describe(EdgeBits& edges, varitype& record) = 0;

    void tracePolylinesInto(varitype& record, const EdgeBits& edges, std::span<const Vertex> positions = {})
    {
        tracePolylines(edges, tracer_, lines_, positions, kPolylineTolerance, &memory_);
        print::field(std::int64_t(lines_.size()), " fvertsArray.size()\n");
        insertPolylines(record, lines_);
    }

    CannySettings settings_;
    WorkMemory memory_;
    TextureSet in_;
    ChainTracer tracer_;

  private:
    int clear_ = 0;
    CannyWorkspace work_;
    TextureSet spare_;  // kept for hosts that count on two handles a step
    Polylines lines_;
};

}  // namespace

class CpuCanny2a final : public TracingCanny
{
  public:
    const char* getName() override { return "CpuCanny2a"; }

  private:
    void describe(EdgeBits& edges, varitype& record) override
    {
        const std::size_t height = edges.height(), rim = std::min<std::size_t>(2, height);
        for (std::size_t i = 0; i < rim; ++i)
            for (const std::size_t y : {i, height - 1 - i})
                std::fill_n(edges.edges(y), edges.wordsPerRow(), std::uint64_t{0});
        tracePolylinesInto(record, edges);
    }
};

class CpuCanny2b final : public TracingCanny
{
  public:
    const char* getName() override { return "CpuCanny2b"; }

  private:
    void describe(EdgeBits& edges, varitype& record) override
    {
        fillGaps(edges, kGapReach, tracer_, &memory_);
        enclosedRegions(edges, regions_, &memory_);
        Array table(Kind::Float, 8, std::uint32_t(regions_.size()));
        float* row = table.elements<float>().data();
        for (const EnclosedRegion& r : regions_) {
            const float values[] = {float(r.x),   float(r.y),     float(r.area),   float(r.left),
                                    float(r.top), float(r.right), float(r.bottom), r.open ? 1.0F : 0.0F};
            row = std::ranges::copy(values, row).out;
        }
        print::field(std::int64_t(regions_.size()), " regions.size()\n");
        record.insert("regions", std::move(table));
    }

    std::vector<EnclosedRegion> regions_;
};

class CpuCanny2c final : public TracingCanny
{
  public:
    const char* getName() override { return "CpuCanny2c"; }

  private:
    EdgeBits& findEdges(std::span<const std::uint16_t> frame) override
    {
        frame16ToPlane(frame, plane_, in_.width(), in_.height(), settings_.meaning);
        for (int i = 0; i < settings_.lowPasses; ++i) lowPass(plane_, 3, &memory_);
        subpixelEdges(plane_, double{settings_.low}, double{settings_.high}, settings_.order, planes_, edges_,
                      positions_, &memory_);
        return edges_;
    }
    void describe(EdgeBits& edges, varitype& record) override
    {
        tracePolylinesInto(record, edges, positions_);
    }

    FloatPlane plane_;
    SubpixelPlanes planes_;
    EdgeBits edges_;
    std::vector<Vertex> positions_;
};

SCANSTEPS_STEP(CpuCanny2a)
SCANSTEPS_STEP(CpuCanny2b)
SCANSTEPS_STEP(CpuCanny2c)

}  // namespace scansteps
