// Step c2ima: keeps the most recent frames and puts them side by side, the newest at the left.
#include <cstdint>
#include <span>
#include <vector>

#include "pixels/side_by_side.h"
#include "scansteps/chain.h"
#include "scansteps/frame.h"
#include "scansteps/handles.h"
#include "scansteps/settings.h"
#include "scansteps/step_factory.h"
#include "scansteps/texture.h"

namespace scansteps::pixels {

class CpuCombine final : public CPUBase
{
  public:
    const char* getName() override { return "CpuCombine"; }
    void init(varitype& params) override;
    void process(varitype& params) override;

  private:
    void takeFrame(int handle);

    FrameSize frameSize_;
    int factor_ = 0;
    TextureSet history_;  // slot k holds the frame k events older than the newest
    TextureSet out_;
    std::vector<std::span<const std::uint16_t>> frames_;  // the frames in history_, newest first
};

SCANSTEPS_FACTORY(c2ima, CpuCombine)

namespace {

// Formats without buffers pass: their frames are rejected when they arrive.
bool isOf16BitSamples(std::uint32_t code)
{
    const FrameShape pixel = frameShape(code, 1, 1);
    return pixel.kind == Kind::Empty || (elementSize(pixel.kind) == 2 && pixel.rowLength == 1);
}

}  // namespace

void CpuCombine::init(varitype& params)
{
    const Settings settings(*this, params);
    frameSize_ = settings.frameSize();
    factor_ = settings.integer("combine.factor");
    std::uint32_t code = formatOrMismatch(*this, params, format::kU1x16);
    if (!isOf16BitSamples(code)) {
        reportMismatch(*this, params);
        code = format::kU1x16;
    }
    out_.create(std::int64_t{frameSize_.width} * factor_, frameSize_.height, 1, code);
    history_.create(frameSize_.width, frameSize_.height, static_cast<std::uint32_t>(factor_), code);
    varitype wide = copyRecord(params);
    wide.set("dataX", frameSize_.width * factor_);
    forward(*this, wide);
}

void CpuCombine::process(varitype& params)
{
    StepTimer timer(*this);
    varitype record = copyRecord(params);
    takeFrame(record["handle"].as<std::int32_t>());

    const auto width = static_cast<std::uint32_t>(frameSize_.width),
               height = static_cast<std::uint32_t>(frameSize_.height);
    frames_.clear();
    for (std::uint32_t k = 0; k < history_.count(); ++k)
        frames_.push_back(samples16(*this, history_.pixels(k), width, height));
    const auto out = samples16(*this, out_.writable(), width * history_.count(), height);
    sideBySide(frames_, width, height, out);

    replaceFrame(record, out_.handle());
    timer.forward(record);
}

// Each buffer moves up one slot; the oldest is returned under the incoming handle.
void CpuCombine::takeFrame(int handle)
{
    samples16(*this, pixelsOf(handle), static_cast<std::uint32_t>(frameSize_.width),
              static_cast<std::uint32_t>(frameSize_.height));
    for (int k = factor_ - 2; k >= 0; --k)
        handles::swap(history_.handle(static_cast<std::size_t>(k) + 1),
                      history_.handle(static_cast<std::size_t>(k)));
    handles::swap(history_.handle(0), handle);
}

}  // namespace scansteps::pixels
