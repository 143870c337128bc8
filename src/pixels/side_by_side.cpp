// Row copies that combine frames into one wide frame.
#include "pixels/side_by_side.h"

#include <algorithm>

namespace scansteps::pixels {

void sideBySide(std::span<const std::span<const std::uint16_t>> frames, std::size_t width, std::size_t height,
                std::span<std::uint16_t> out)
{
    std::uint16_t* to = out.data();
    for (std::size_t y = 0; y < height; ++y)
        for (const auto frame : frames) to = std::copy_n(frame.data() + y * width, width, to);
}

}  // namespace scansteps::pixels
