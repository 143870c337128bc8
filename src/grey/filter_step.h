// Base of steps that turn 16-bit frames into offset 16-bit frames: later steps no longer see YUYV16.
#pragma once

#include "core/scratch_arena.h"
#include "grey/sample_coding.h"
#include "scansteps/frame.h"
#include "scansteps/settings.h"

namespace scansteps::grey {

class FilterStep : public CPUBase
{
  public:
    void init(varitype& params) override
    {
        const Settings settings(*this, params);
        frameSize_ = settings.frameSize();
        coding_ = sampleCoding(settings);
        read(settings);
        in_.create(frameSize_.width, frameSize_.height, 1, formatOrMismatch(*this, params, format::kF1x32));
        params.remove("VideoFormat");
        forward(*this, params);
    }

    void process(varitype& params) override
    {
        FrameScope frame(*this, params, in_, FrameCheck::Samples16);
        filter(frame.input<std::uint16_t>());
        frame.forward();
    }

  protected:
    virtual void read(const Settings& settings) = 0;
    virtual void filter(std::span<std::uint16_t> frame) = 0;

    ScratchArena memory_;
    FrameSize frameSize_;
    SampleCoding coding_ = SampleCoding::Offset16;

  private:
    TextureSet in_;
};

}  // namespace scansteps::grey
