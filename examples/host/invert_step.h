// A step of one's own: turns 8-bit RGB frames into their negative. What every step does is here, and no more:
// settings and buffers at initialise, one frame a process event, the framework's flush.
#pragma once

#include <scansteps/chain.h>
#include <scansteps/frame.h>
#include <scansteps/texture.h>

#include <cstdint>

class InvertStep final : public scansteps::CPUBase
{
  public:
    const char* getName() override { return "InvertStep"; }

    void init(scansteps::varitype& params) override
    {
        // The geometry of the frames to come; an absent key throws its own error.
        const int width = params["dataX"].as<int>();
        const int height = params["dataY"].as<int>();
        // One buffer, as the step works in place. An 8-bit RGB frame is (3 x width) x height x 1 bytes.
        const scansteps::FrameShape shape{scansteps::Kind::Uchar, 3 * static_cast<std::uint32_t>(width),
                                          static_cast<std::uint32_t>(height)};
        frames_.create(width, height, scansteps::format::kU1x8, shape);
        scansteps::forward(*this, params);
    }

    void process(scansteps::varitype& params) override
    {
        // Starts the clock, checks the incoming frame and swaps it into our buffer.
        scansteps::FrameScope frame(*this, params, frames_);
        for (std::uint8_t& sample : frame.input<std::uint8_t>())
            sample = static_cast<std::uint8_t>(255 - sample);
        // Stops the clock and hands on a copy of the record that names our buffer.
        frame.forward();
    }

  private:
    scansteps::TextureSet frames_;
};
