// What the conversion steps have in common: the size of the frames, and one buffer on either side.
#pragma once

#include "scansteps/frame.h"
#include "scansteps/settings.h"

namespace scansteps::pixels {

class ConversionStep : public CPUBase
{
  protected:
    /// Bytes in a row of 8-bit RGB.
    std::int64_t rgbRow() const { return 3 * std::int64_t{frameSize_.width}; }

    FrameSize frameSize_;
    TextureSet in_, out_;
};

}  // namespace scansteps::pixels
