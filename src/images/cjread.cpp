#include "images/cjread.h"

#include <utility>

#include "core/step_factory.h"
#include "images/image_file.h"

namespace scansteps::images {

SCANSTEPS_FACTORY(cjread, Cjread)

std::optional<HeldImage> Cjread::load(const std::string& path, Array&& memory, ImageTrouble& trouble)
{
    std::optional<RgbImage> image = loadImage(path, std::move(memory), &trouble);
    if (!image) return std::nullopt;
    return HeldImage{image->width, image->height, std::move(image->pixels)};
}

}  // namespace scansteps::images
