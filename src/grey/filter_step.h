// Base of the steps cdeva and cedge, which replace 16-bit frames by offset 16-bit samples: "VideoFormat" is
// not passed on to later steps.
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
    /// Reads the settings of the step itself.
    virtual void read(const Settings& settings) = 0;
    /// Replaces the samples of a frame of width_ × height_.
    virtual void filter(std::span<std::uint16_t> frame) = 0;

    ScratchArena memory_;
    FrameSize frameSize_;
    SampleCoding coding_ = SampleCoding::Offset16;

  private:
    TextureSet in_;
};

}  // namespace scansteps::grey
