// Images of polylines, for the registration of views whose grey values are no longer available.
#pragma once

#include "edges/polyline.h"
#include "grey/grey_image.h"

namespace scansteps::registration {

/// Draws polylines as ridges, 255 on a line and falling to 0 at `radius` pixels from it, so that edges can be
/// aligned like grey values when the image they were found in is no longer available. `out` is resized to
/// width × height. Segments much longer than the image are skipped.
void drawRidges(const edges::Polylines& lines, int width, int height, grey::GreyImage& out, float radius = 4);

}  // namespace scansteps::registration
