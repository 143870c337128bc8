// Step d2h: moves the frame from "data" in the record into a buffer of the step, which "handle" refers to.
#include "core/frame_in_record.h"
#include "scansteps/frame.h"
#include "scansteps/settings.h"
#include "scansteps/step_factory.h"

namespace scansteps::flow {

class CpuD2H final : public CPUBase
{
  public:
    const char* getName() override { return "CpuD2H"; }

    void init(varitype& params) override
    {
        const FrameSize size = Settings(*this, params).frameSize();
        out_.create(size.width, size.height, 1, formatOrMismatch(*this, params, format::kF1x32));
        forward(*this, params);
    }

    void process(varitype& params) override
    {
        StepTimer timer(*this);
        varitype record = copyRecord(params);
        const varitype data = record["data"];
        checkEmbeddedFrame(*this, data.as<Array>());
        out_.pixels() = data.as<Array>();
        record.remove("data");
        record.set("handle", out_.handle());
        timer.forward(record);
    }

  private:
    TextureSet out_;
};

SCANSTEPS_FACTORY(d2h, CpuD2H)

}  // namespace scansteps::flow
