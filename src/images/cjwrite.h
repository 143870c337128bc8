// Step cjwrite: writes every frame as the next numbered JPEG or PPM file and passes it on.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "scansteps/chain.h"
#include "scansteps/settings.h"
#include "scansteps/texture.h"

namespace scansteps::images {

class Cjwrite final : public CPUBase
{
  public:
    const char* getName() override { return "Cjwrite"; }
    void init(varitype& params) override;
    void process(varitype& params) override;

  private:
    class SampleRows;
    template <class Rows>
    void write(Rows& rows);

    std::string fileName_;
    int quality_ = 75;
    bool isVideo_ = false;
    std::uint32_t format_ = format::kU1x8;
    FrameSize frameSize_;
    int window_ = 256, level_ = 128;
    TextureSet frame_;
    TextureSet spare_;               // holds its handle, nothing is done with it
    std::vector<std::uint8_t> rgb_;  // some rows of the picture made of 16-bit samples
};

}  // namespace scansteps::images
