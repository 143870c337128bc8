// Step cstrip: removes "handle" and "visu" from the records of frames.
#include "scansteps/frame.h"
#include "scansteps/step_factory.h"

namespace scansteps::flow {

class CpuStrip final : public CPUBase
{
  public:
    const char* getName() override { return "CpuStrip"; }
    void init(varitype& params) override { forward(*this, params); }

    void process(varitype& params) override
    {
        StepTimer timer(*this);
        varitype record = copyRecord(params);
        record.remove("handle");
        record.remove("visu");
        timer.forward(record);
    }
};

SCANSTEPS_FACTORY(cstrip, CpuStrip)

}  // namespace scansteps::flow
