// Stable regions as a frame of labels.
#pragma once

#include <cstdint>
#include <span>

#include "grey/grey_image.h"
#include "regions/mser.h"

namespace scansteps::regions {

/// Writes 32768 + k into every sample of `labels` whose pixel belongs to region k = 1, 2, ... (32767 at most)
/// of `image`, and 32768 elsewhere. Regions inside regions come later, as the detector orders them, and are
/// on top. `labels` holds a sample for each pixel of the image, else a text is thrown.
void labelStableRegions(grey::GreyView image, std::span<const Region> regions, bool eight,
                        std::span<std::uint16_t> labels);

}  // namespace scansteps::regions
