// The best picture for each triangle of a model.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <vector>

#include "camera_model.h"

namespace scansteps::scan {

struct TextureModel
{
    std::span<const float> vertices;         ///< x, y, z in object coordinates, mm
    std::span<const std::uint32_t> indices;  ///< three per triangle, counter-clockwise seen from outside
};

struct TextureLimits
{
    float angle = 75;  ///< largest angle between a triangle's normal and the ray to it, degrees
    int contour = 4;   ///< pixels from a contour in which a picture is used only where no other one sees; in
                       ///< the first of them it never is
    int island =
        200;  ///< parts of a picture with fewer triangles join their surroundings where these see them
};

/// What one picture shows of a model.
struct Visibility
{
    std::vector<float> pixels;  ///< column, row of each vertex; NaN behind the camera
    std::vector<float> scores;  ///< of each triangle: cosine to the ray, a tenth near contours; 0: not seen
};

/// Draws the model into a depth buffer of the camera's size. A triangle is seen if it lies in the picture and
/// nothing hides its middle.
Visibility visibilityOf(const TextureModel& model, const CameraModel& camera, const Pose& pose,
                        const TextureLimits& limits);

/// The picture of each triangle, -1 where none sees it: that with the highest score after the scores were
/// averaged among neighbours, which moves seams to where pictures are equally good and straightens them.
/// Then labels that disagree with their neighbours are changed (iterated conditional modes: Besag, 1986), and
/// small parts join their surroundings. Takes 12 + 8 * views bytes a triangle. At most 32767 views.
std::vector<int> choosePictures(const TextureModel& model, std::span<const Visibility> views,
                                const TextureLimits& limits);

/// The neighbour of each triangle across its sides (0-1, 1-2, 2-0), -1 where there is none.
std::vector<std::array<std::int32_t, 3>> neighboursOf(const TextureModel& model);

}  // namespace scansteps::scan
