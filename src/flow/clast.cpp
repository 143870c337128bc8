// Step clast: drops process events, so that frames go no further. All other events are forwarded.
#include "scansteps/frame.h"
#include "scansteps/step_factory.h"

namespace scansteps::flow {

class CpuLast final : public CPUBase
{
  public:
    const char* getName() override { return "CpuLast"; }
    void init(varitype& params) override { forward(*this, params); }
    void process(varitype&) override { StepTimer(*this).stop(); }
};

SCANSTEPS_FACTORY(clast, CpuLast)

}  // namespace scansteps::flow
