// Step cjread: 8-bit RGB frames from numbered JPEG and PPM files.
#pragma once

#include "images/image_source.h"

namespace scansteps::images {

class Cjread final : public ImageSource
{
  public:
    const char* getName() override { return "Cjread"; }

  private:
    std::optional<HeldImage> load(const std::string& path, Array&& memory, ImageTrouble& trouble) override;
};

}  // namespace scansteps::images
