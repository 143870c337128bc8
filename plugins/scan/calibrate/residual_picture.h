// Residuals as a picture.
#pragma once

#include <cstdint>
#include <vector>

#include "bundle.h"

namespace scansteps::scan {

/// An RGB picture of the size of the camera's: a line from every corner along its residual, magnified so that
/// a residual of one pixel is a sixteenth of the width; one colour for each view. Residuals without a pattern
/// are a good sign.
std::vector<std::uint8_t> residualPicture(const std::vector<PlaneView>& views,
                                          const CameraSolution& solution);

}  // namespace scansteps::scan
