// Step cjread: 8-bit RGB frames from numbered JPEG and PPM files.
#include <utility>

#include "images/image_file.h"
#include "images/image_source.h"
#include "scansteps/step_factory.h"

namespace scansteps::images {

namespace {

std::optional<HeldImage> load(const std::string& path, HeldImage&& spare, ImageTrouble& trouble)
{
    std::optional<RgbImage> image = loadImage(path, std::move(spare.pixels), &trouble);
    if (!image) return std::nullopt;
    return HeldImage{image->width, image->height, std::move(image->pixels), {}};
}

}  // namespace

class Cjread final : public ImageSource
{
  public:
    Cjread() : ImageSource(load) {}
    const char* getName() override { return "Cjread"; }
};

SCANSTEPS_FACTORY(cjread, Cjread)

}  // namespace scansteps::images
