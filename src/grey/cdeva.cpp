// Step cdeva: local standard deviation as offset 16-bit samples.
#include "grey/filter_step.h"
#include "grey/local_deviation.h"
#include "scansteps/step_factory.h"

namespace scansteps::grey {

class CpuDev1 final : public FilterStep
{
  public:
    const char* getName() override { return "CpuDev1"; }

  private:
    void read(const Settings& settings) override
    {
        size_ = settings.integer("deva.size");
        gain_ = settings.real("deva.gain");
    }
    void filter(std::span<std::uint16_t> frame) override
    {
        localDeviation(frame, frameSize_.width, frameSize_.height, coding_, size_, gain_, &memory_);
    }

    int size_ = 7;
    float gain_ = 1;
};

SCANSTEPS_FACTORY(cdeva, CpuDev1)

}  // namespace scansteps::grey
