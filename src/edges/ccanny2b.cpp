// Step ccanny2b: Canny edges with gaps closed, and the regions that edges enclose.
#include <algorithm>
#include <vector>

#include "edges/edge_regions.h"
#include "edges/tracing_canny_step.h"
#include "scansteps/step_factory.h"

namespace scansteps::edges {

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

SCANSTEPS_FACTORY(ccanny2b, CpuCanny2b)

}  // namespace scansteps::edges
