// Base of the steps ccanny2a, ccanny2b and ccanny2c: settings, buffers, and the conversion of a frame to
// edges and back.
#pragma once

#include <algorithm>

#include "core/print.h"
#include "core/sample_values.h"
#include "edges/canny_settings.h"
#include "edges/polyline.h"
#include "edges/polyline_record.h"
#include "scansteps/frame.h"

namespace scansteps::edges {

class TracingCanny : public CPUBase
{
  public:
    void init(varitype& params) override
    {
        const Settings settings(*this, params);
        settings_ = CannySettings::read(settings);
        clear_ = settings.integer("OCV.clear");
        const std::uint32_t code = formatOrMismatch(*this, params, format::kF1x32);
        in_.create(settings_.frameSize.width, settings_.frameSize.height, 1, code);
        spare_.create(settings_.frameSize.width, settings_.frameSize.height, 1, code);
        forward(*this, params);
    }

    void process(varitype& params) override
    {
        FrameScope frame(*this, params, in_, FrameCheck::Samples16);
        const auto samples = frame.input<std::uint16_t>();
        settings_.print();
        EdgeBits& edges = findEdges(samples);
        if (clear_ != 0) std::ranges::fill(samples, kOffset16Zero);
        print::field(std::int64_t(in_.width()), " a.getX()\n");
        print::field(std::int64_t(in_.height()), " a.getY()\n");
        describe(edges, frame.record());
        edgesToFrame16(edges, samples);
        frame.forward();
    }

  protected:
    /// Finds the edges of a frame, which it leaves unchanged.
    virtual EdgeBits& findEdges(std::span<const std::uint16_t> frame)
    {
        return detectFrame16(frame, in_.width(), in_.height(), settings_.coding, settings_.lowPasses,
                             double{settings_.low}, double{settings_.high}, settings_.order, work_);
    }
    /// Evaluates the edges, adds the result to the record and prints its size. May change the edges.
    virtual void describe(EdgeBits& edges, varitype& record) = 0;

    void tracePolylinesInto(varitype& record, const EdgeBits& edges, std::span<const Vertex> positions = {},
                            float tolerance = kPolylineTolerance)
    {
        tracePolylines(edges, tracer_, lines_, positions, tolerance, &memory_);
        print::field(std::int64_t(lines_.size()), " fvertsArray.size()\n");
        insertPolylines(record, lines_);
    }

    CannySettings settings_;
    ScratchArena memory_;
    TextureSet in_;
    PathTracer tracer_;

  private:
    int clear_ = 0;
    CannyWorkspace work_;
    TextureSet spare_;  // for hosts that expect two handles per step
    Polylines lines_;
};

}  // namespace scansteps::edges
