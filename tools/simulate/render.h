// What the camera sees: the light that falls on each pixel in every picture of a pose, and the truth about
// it.
#pragma once

#include "image.h"
#include "lighting.h"

namespace scansteps::simulate {

/// Maps of what is known about each pixel; NaN where nothing is.
struct Truth
{
    Image depth;          ///< z of the point on the ray of the pixel's centre, millimetres
    Image columns, rows;  ///< the projector pixel that lights this point; NaN in the shade
    Image amplitude;      ///< half of white minus black, grey levels, of the whole pixel; 0 in the dark
    /// 0: the point on the centre's ray is not lit. 255: all of the pixel is one lit surface. 128: only a
    /// part of it.
    std::vector<std::uint8_t> mask;
};

struct Rendering
{
    std::vector<Image> pictures;  ///< light in grey levels, without blur and noise
    Truth truth;
};

/// The scale of the projector's light; see PatternLight. 1 for other lights.
double exposureOf(const Scene& scene, int threads);

/// Each camera pixel is divided into samples × samples cells with a ray through the middle of each. Random
/// places in the cells would shift what a pixel sees by 0.02 pixels in all pictures of a series alike, as
/// much as the noise does. Light and surface are traced once; all pictures are computed from the places on
/// the projector.
Rendering render(const Scene& scene, const scan::Pose& pose, double exposure, int threads);

}  // namespace scansteps::simulate
