// Step h2d: replaces "handle" in the record by the frame itself, as "data".
#include "scansteps/frame.h"
#include "scansteps/step_factory.h"

namespace scansteps::flow {

class CpuH2D final : public CPUBase
{
  public:
    const char* getName() override { return "CpuH2D"; }
    void init(varitype& params) override { forward(*this, params); }

    void process(varitype& params) override
    {
        StepTimer timer(*this);
        varitype record = copyRecord(params);
        if (record.has("handle")) {
            record.insert("data", pixelsOf(record["handle"].as<std::int32_t>()));
            record.remove("handle");
        }
        timer.forward(record);
    }
};

SCANSTEPS_FACTORY(h2d, CpuH2D)

}  // namespace scansteps::flow
