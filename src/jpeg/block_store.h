// Stores decoded blocks that do not go into their plane as they are: cut off at its edge, or averaged.
#pragma once

#include <cstddef>
#include <cstdint>

#include "jpeg/scan.h"

namespace scansteps::jpeg {

/// Eight rows of `columns` samples (a multiple of 8), the first at (x, y) of the component; what lies outside
/// of the component is left out. Averages round halves up and count only samples inside of the component.
void storeJpegSamples(const JpegScanComponent& component, const std::uint8_t* samples, int columns, int x,
                      int y);

}  // namespace scansteps::jpeg
