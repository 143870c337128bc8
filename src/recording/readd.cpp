// Step readd: replays a recording unchanged, one record per event. The recorded event replaces the host's, so
// the host receives the recorded flush as well.
#include "recording/recording.h"
#include "scansteps/frame.h"
#include "scansteps/settings.h"
#include "scansteps/step_factory.h"

namespace scansteps::recording {

class FileRead final : public CPUBase
{
  public:
    const char* getName() override { return "FileRead"; }

    void init(varitype& params) override
    {
        const Settings settings(*this, params);
        recording_.open(settings.text("load.name"), settings);
        forward(*this, params);
    }

    void process(varitype& params) override
    {
        StepTimer timer(*this);
        varitype record = recording_.next();
        params.getv<Struct>() = std::move(record.getv<Struct>());
        const int recorded = eventType(params);
        if (recorded == event::kFlush) return;
        recording_.readAhead();
        if (recorded == event::kProcess) timer.stop();
        forward(*this, params);
    }

    void flush(varitype& params) override
    {
        recording_.finishRun(getName());
        CPUBase::flush(params);
    }

  private:
    Recording recording_;
};

SCANSTEPS_FACTORY(readd, FileRead)

}  // namespace scansteps::recording
