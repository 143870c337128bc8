// Base of the conversion steps: frame size, one input and one output buffer.
#pragma once

#include "scansteps/frame.h"
#include "scansteps/settings.h"

namespace scansteps::pixels {

class ConversionStep : public CPUBase
{
  protected:
    /// Bytes per row of 8-bit RGB.
    std::int64_t rgbRow() const { return 3 * std::int64_t{frameSize_.width}; }

    FrameSize frameSize_;
    TextureSet in_, out_;
};

}  // namespace scansteps::pixels
