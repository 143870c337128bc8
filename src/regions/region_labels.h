// Label images of stable regions.
#pragma once

#include <cstdint>
#include <span>

#include "grey/grey_image.h"
#include "regions/mser.h"

namespace scansteps::regions {

/// Writes 32768 + k into every sample of `labels` whose pixel belongs to region k = 1, 2, ... (32767 at most)
/// of `image`, and 32768 elsewhere. Regions nested in others come later in the
/// detector's order and overwrite them. `eight` selects 8-connectivity. Throws when `labels` holds fewer
/// samples than the image has pixels.
void labelStableRegions(grey::GreyView image, std::span<const Region> regions, bool eight,
                        std::span<std::uint16_t> labels);

}  // namespace scansteps::regions
