// Step ccanny2c: edges with sub-pixel positions, traced into polylines.
#include <vector>

#include "edges/smoothing.h"
#include "edges/subpixel_edges.h"
#include "edges/tracing_canny_step.h"
#include "scansteps/step_factory.h"

namespace scansteps::edges {

class CpuCanny2c final : public TracingCanny
{
  public:
    const char* getName() override { return "CpuCanny2c"; }

    void init(varitype& params) override
    {
        const Settings settings(*this, params);
        tolerance_ = settings.real("OCV.tolerance");
        sigma_ = settings.real("OCV.sigma");
        TracingCanny::init(params);
    }

  private:
    EdgeBits& findEdges(std::span<const std::uint16_t> frame) override
    {
        frame16ToPlane(frame, plane_, in_.width(), in_.height(), settings_.coding);
        for (int i = 0; i < settings_.lowPasses; ++i) lowPass(plane_, 3, &memory_);
        gaussian(plane_, sigma_ < 0 ? smoothingFor(noiseOf(plane_, &memory_)) : double{sigma_}, &memory_);
        subpixelEdges(plane_, double{settings_.low}, double{settings_.high}, settings_.order, planes_, edges_,
                      positions_, &memory_);
        return edges_;
    }
    void describe(EdgeBits& edges, varitype& record) override
    {
        tracePolylinesInto(record, edges, positions_, tolerance_);
    }

    float tolerance_ = 0.1F, sigma_ = -1;  // pixels
    FloatPlane plane_;
    SubpixelPlanes planes_;
    EdgeBits edges_;
    std::vector<Vertex> positions_;
};

SCANSTEPS_FACTORY(ccanny2c, CpuCanny2c)

}  // namespace scansteps::edges
