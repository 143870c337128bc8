// What the fuzz target of the model files does with its input, shared with the test that replays the corpus.
#pragma once

#include <algorithm>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <string_view>

#include "viewer/answers.h"
#include "viewer/model_file.h"

namespace scansteps::fuzzing {

/// Every list has the length that the page relies on, and what a triangle refers to is there.
inline void checkMesh(const viewer::Mesh& mesh, std::size_t bytes)
{
    const std::size_t vertices = mesh.positions.size() / 3, triangles = mesh.indices.size() / 3;
    const auto fits = [](const auto& list, std::size_t size) { return list.empty() || list.size() == size; };
    if (mesh.positions.size() % 3 != 0 || mesh.indices.size() % 3 != 0) std::abort();
    if (!fits(mesh.vertexColours, 3 * vertices) || !fits(mesh.faceColours, 3 * triangles) ||
        !fits(mesh.normals, 3 * vertices) || !fits(mesh.pixels, 2 * vertices) ||
        !fits(mesh.uv, 2 * vertices) || !fits(mesh.views, triangles))
        std::abort();
    for (const std::uint32_t index : mesh.indices)
        if (index >= vertices) std::abort();
    // Memory in proportion to the input.
    if (mesh.positions.size() + mesh.indices.size() > 24 * bytes) std::abort();
    if (!viewer::meshAnswer({}, mesh)) std::abort();
}

/// The bytes as a file of each format; for OBJ they are the files beside it as well.
inline void readModels(const std::uint8_t* data, std::size_t size)
{
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    const auto read = [&](auto parse) {
        try {
            checkMesh(parse(), size);
        } catch (const std::runtime_error& error) {
            if (*error.what() == '\0') std::abort();
        }
    };
    read([&] { return viewer::parsePly(bytes); });
    read([&] { return viewer::parseStl(bytes); });
    read([&] { return viewer::parseObj(bytes, [&](const std::string&) { return std::string(bytes); }); });
}

}  // namespace scansteps::fuzzing
