// Step cedge: gradient magnitude as offset 16-bit samples.
#include "edges/gradient_frame.h"
#include "grey/filter_step.h"
#include "scansteps/step_factory.h"

namespace scansteps::edges {

class CpuEdge final : public grey::FilterStep
{
  public:
    const char* getName() override { return "CpuEdge"; }

  private:
    void read(const Settings& settings) override
    {
        lowPasses_ = settings.integer("edge.lp0");
        aperture_ = settings.integer("edge.order");
    }
    void filter(std::span<std::uint16_t> frame) override
    {
        gradientFrame16(frame, frameSize_.width, frameSize_.height, coding_, lowPasses_, aperture_, dx_, dy_,
                        &memory_);
    }

    int lowPasses_ = 0, aperture_ = 3;
    FloatPlane dx_, dy_;
};

SCANSTEPS_FACTORY(cedge, CpuEdge)

}  // namespace scansteps::edges
