// Step ccanny2a: Canny edges traced into polylines.
#include <algorithm>

#include "edges/tracing_canny_step.h"
#include "scansteps/step_factory.h"

namespace scansteps::edges {

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

SCANSTEPS_FACTORY(ccanny2a, CpuCanny2a)

}  // namespace scansteps::edges
