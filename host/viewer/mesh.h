// Meshes and point clouds on their way to the page.
#pragma once

#include <nlohmann/json.hpp>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "picture.h"
#include "scansteps/record.h"

namespace scansteps::viewer {

struct Mesh
{
    std::vector<float> positions;                          ///< x, y, z
    std::vector<std::uint32_t> indices;                    ///< three a triangle; none: points
    std::vector<std::uint8_t> vertexColours, faceColours;  ///< R, G, B; one list or none
    std::vector<float> normals;                            ///< x, y, z a vertex, or none
    std::vector<float> pixels;        ///< column, row of each vertex in its picture, or none
    std::vector<float> uv;            ///< texture coordinates of each vertex, v upwards, or none
    std::vector<std::int32_t> views;  ///< picture of each triangle, or none: the first
    struct Texture
    {
        Bytes rgb;
        std::uint32_t width = 0, height = 0;
        Bytes file = {};  ///< instead: a JPEG or PNG file
    };
    std::vector<Texture> textures;
    std::string error;  ///< what could not be taken
};

/// The model of a record, "tria" or "pns"; without positions when there is none.
Mesh meshOf(const Struct& record);

/// Adds "model" to the head: for each list [offset in the payload, elements], and the bounds. Textures are
/// JPEG.
std::shared_ptr<const Bytes> meshAnswer(nlohmann::json head, const Mesh& mesh);

}  // namespace scansteps::viewer
