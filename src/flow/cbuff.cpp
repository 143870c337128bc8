// Step cbuff: collects a number of frames and releases them to the next step in one burst.
#include <vector>

#include "core/frame_in_record.h"
#include "core/incoming_frame.h"
#include "core/print.h"
#include "scansteps/chain.h"
#include "scansteps/frame.h"
#include "scansteps/settings.h"
#include "scansteps/step_factory.h"
#include "scansteps/texture.h"

namespace scansteps::flow {

class CPUDBuff final : public CPUBase
{
  public:
    const char* getName() override { return "CPUDBuff"; }
    void init(varitype& params) override;
    void process(varitype& params) override;
    void flush(varitype& params) override;

  private:
    void release();

    TextureSet slots_;
    std::vector<varitype> records_;  // for the slots filled so far
    std::size_t released_ = 0;       // number of records already forwarded
};

SCANSTEPS_FACTORY(cbuff, CPUDBuff)

void CPUDBuff::init(varitype& params)
{
    const Settings settings(*this, params);
    const FrameSize size = settings.frameSize();
    const int count = settings.integer("Buff.Size");
    const std::uint32_t format = formatOrMismatch(*this, params, format::kF1x32);
    records_.clear();
    released_ = 0;
    slots_.create(size.width, size.height, static_cast<std::uint32_t>(count), format);
    print::twice("CPUDBuff::init OK");
    forward(*this, params);
}

void CPUDBuff::process(varitype& params)
{
    if (released_ != 0) release();  // the previous burst was interrupted by an error
    StepTimer timer(*this);
    const Array& frame = incomingFrame(params);
    const std::size_t slot = records_.size();
    slots_.pixels(slot) = frame;
    varitype record = copyRecord(params);
    record["handle"].getv<std::int32_t>() = slots_.handle(slot);
    records_.push_back(std::move(record));
    timer.stop();
    if (records_.size() == slots_.count()) release();
}

void CPUDBuff::flush(varitype& params)
{
    finishThen([&] { release(); }, [&] { CPUBase::flush(params); });
}

// If a later step throws, the next call continues with the following frame, so that none is released twice.
void CPUDBuff::release()
{
    while (released_ < records_.size()) forward(*this, records_[released_++]);
    records_.clear();
    released_ = 0;
}

}  // namespace scansteps::flow
