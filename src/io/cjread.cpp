#include "io/cjread.h"

#include <utility>

#include "framework/step_factory.h"
#include "io/image_file.h"

namespace scansteps {

SCANSTEPS_STEP(Cjread)

std::optional<HeldImage> Cjread::load(const std::string& path)
{
    std::optional<RgbImage> image = loadImage(path);
    if (!image) return std::nullopt;
    const auto rowLength = static_cast<std::uint32_t>(image->width) * 3;
    const auto rows = static_cast<std::uint32_t>(image->height);
    return HeldImage{image->width, image->height, {Kind::Uchar, rowLength, rows}, std::move(image->pixels)};
}

}  // namespace scansteps
