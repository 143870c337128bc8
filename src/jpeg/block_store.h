// Stores decoded blocks that are clipped at the edge of their plane or averaged.
#pragma once

#include <cstddef>
#include <cstdint>

#include "jpeg/scan.h"

namespace scansteps::jpeg {

/// Stores eight rows of `columns` samples (a multiple of 8), the first at (x, y) of the component, and drops
/// samples outside the component. Averages round half up and include only samples inside the component.
void storeJpegSamples(const JpegScanComponent& component, const std::uint8_t* samples, int columns, int x,
                      int y);

}  // namespace scansteps::jpeg
