// Step cpu: forwards every event. Reads a processor number but does not use it.
#include "scansteps/settings.h"
#include "scansteps/step_factory.h"

namespace scansteps::flow {

class CpuAff final : public CPUBase
{
  public:
    const char* getName() override { return "CpuAff"; }
    void init(varitype& params) override
    {
        Settings(*this, params).integer("cpu.core");
        forward(*this, params);
    }
    void process(varitype& params) override { forward(*this, params); }
};

SCANSTEPS_FACTORY(cpu, CpuAff)

}  // namespace scansteps::flow
