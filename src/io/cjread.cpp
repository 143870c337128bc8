#include "io/cjread.h"

#include <algorithm>
#include <utility>

#include "framework/step_factory.h"
#include "io/image_file.h"

namespace scansteps {

SCANSTEPS_STEP(Cjread)

std::optional<HeldImage> Cjread::load(const std::string& path)
{
    std::optional<RgbImage> image = loadImage(path);
    if (!image) return std::nullopt;
    Array pixels(Kind::Uchar, static_cast<std::uint32_t>(image->width) * 3,
                 static_cast<std::uint32_t>(image->height));
    std::ranges::copy(image->bytes(), pixels.elements<std::uint8_t>().begin());
    return HeldImage{image->width, image->height, std::move(pixels)};
}

}  // namespace scansteps
