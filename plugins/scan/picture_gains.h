// Brightness of pictures that show the same surface.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <vector>

#include "texture_choice.h"

namespace scansteps::scan {

/// Bytes of red, green and blue, rows from top to bottom.
struct Picture
{
    std::span<const std::uint8_t> rgb;
    int width = 0, height = 0;
};

/// Lowers the scores of triangles in the shade, which the light of the view did not reach: those with less
/// than a quarter of the brightness that another picture shows there get a twentieth. A filling, with less
/// than a quarter of the mean brightness of the model, is not seen. `filled` has one entry a triangle, or
/// none.
void avoidShade(const TextureModel& model, std::span<const std::int32_t> filled,
                std::span<const Picture> pictures, std::span<Visibility> views);

/// A factor for the brightness of each pixel of a picture: its logarithm at the nodes of a coarse grid,
/// linear between them.
struct GainField
{
    int columns = 0, rows = 0;
    float cell = 1;                 ///< pitch of the nodes, pixels; the first is at pixel (0, 0)
    std::vector<float> logarithms;  ///< of the nodes, row by row

    float at(float x, float y) const;
    /// Geometric mean of the factors at all nodes.
    float mean() const;
};

/// Factors with which triangles that several pictures show have the same brightness in all. The light moves
/// with the camera, so that a surface darkens towards one side of a picture: a number for each picture would
/// leave seams. Least squares over the logarithms of well-exposed triangles, more the more squarely they are
/// seen, with factors that change slowly; where nothing is known they go to 1. All pictures have the same
/// size.
std::vector<GainField> matchPictures(const TextureModel& model, std::span<const Visibility> views,
                                     std::span<const Picture> pictures);

/// Every pixel times its factor, rounded and saturated.
void applyGains(const GainField& gains, int width, std::span<std::uint8_t> rgb);

/// Mean colour of the triangles in their pictures (labels from choosePictures); grey 128 if none has a
/// picture.
std::array<std::uint8_t, 3> meanColour(const TextureModel& model, std::span<const Visibility> views,
                                       std::span<const Picture> pictures, std::span<const int> labels);

}  // namespace scansteps::scan
