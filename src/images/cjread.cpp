// Step cjread: 8-bit RGB frames from numbered JPEG and PPM files.
#include <utility>

#include "images/image_file.h"
#include "images/image_source.h"
#include "scansteps/step_factory.h"

namespace scansteps::images {

class Cjread final : public ImageSource
{
  public:
    const char* getName() override { return "Cjread"; }

  private:
    std::optional<HeldImage> load(const std::string& path, Array&& memory, ImageTrouble& trouble) override;
};

SCANSTEPS_FACTORY(cjread, Cjread)

std::optional<HeldImage> Cjread::load(const std::string& path, Array&& memory, ImageTrouble& trouble)
{
    std::optional<RgbImage> image = loadImage(path, std::move(memory), &trouble);
    if (!image) return std::nullopt;
    return HeldImage{image->width, image->height, std::move(image->pixels)};
}

}  // namespace scansteps::images
