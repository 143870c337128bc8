// What the camera makes of the light: blur, noise, saturation, 8 bits.
#pragma once

#include "image.h"
#include "scene.h"

namespace scansteps::simulate {

/// Blurs with a Gaussian of standard deviation `sigma` pixels, by the kernel that has exactly this variance
/// on a grid (Lindeberg, "Scale-space for discrete signals", 1990); beyond its border the image goes on like
/// its outermost pixels.
void blur(Image& image, double sigma, int threads);

/// The grey levels of picture number `picture` of a series: blur, offset, noise of variance read² + shot ×
/// light, rounded and clamped to 0 … 255. The noise of a value depends on seed, picture, place and channel
/// only.
std::vector<std::uint8_t> expose(Image light, const Sensor& sensor, std::uint64_t seed, std::uint32_t picture,
                                 int threads);

}  // namespace scansteps::simulate
