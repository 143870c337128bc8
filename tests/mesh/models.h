// Small models shared by the tests of the writers.
#pragma once

#include <cstdint>
#include <random>
#include <vector>

#include "mesh/mesh.h"

namespace scansteps::test {

using namespace mesh;

/// A mesh with its storage.
struct Model
{
    std::vector<float> vertices;
    std::vector<std::uint32_t> indices;
    std::vector<float> colours;
    std::vector<float> pixels;
    std::vector<std::int32_t> views;
    bool viewsOfTriangles = false;
    Mesh mesh() const { return {vertices, indices, colours, pixels, views, viewsOfTriangles}; }
};

/// Four triangles around four vertices.
inline Model tetrahedron()
{
    return {{-1.23456F, 0, 0, 2.99999F, 0, 1000.06F, 0, 3, 0, 1, 1, 4},
            {0, 2, 1, 0, 1, 3, 1, 2, 3, 2, 0, 3},
            {255, 128, 0, 0, 255, 0.99F, 0, 0, 254.9F, 10, 20, 30},
            {},
            {}};
}

/// A plane grid of columns x rows vertices, each with a bump so that no normal is the axis itself.
inline Model bumpyGrid(std::uint32_t columns, std::uint32_t rows)
{
    Model model;
    for (std::uint32_t y = 0; y < rows; ++y)
        for (std::uint32_t x = 0; x < columns; ++x) {
            const auto bump = static_cast<float>((x * 7 + y * 13) % 11) * 0.125F;
            for (const float v : {static_cast<float>(x), static_cast<float>(y), bump})
                model.vertices.push_back(v);
            if (x + 1 == columns || y + 1 == rows) continue;
            const std::uint32_t a = y * columns + x, b = a + 1, c = a + columns, d = c + 1;
            for (const std::uint32_t i : {a, b, c, b, d, c}) model.indices.push_back(i);
            for (std::uint32_t i = 0; i < 6; ++i)
                model.colours.push_back(static_cast<float>((x * 31 + y * 17 + i * 41) % 256) + 0.5F);
        }
    return model;
}

/// A picture of one colour.
struct Plain
{
    Plain(int w, int h, std::uint8_t r, std::uint8_t g, std::uint8_t b) : width(w), height(h)
    {
        for (int i = 0; i < w * h; ++i) rgb.insert(rgb.end(), {r, g, b});
    }
    PictureView view() const { return {rgb, width, height}; }
    int width, height;
    std::vector<std::uint8_t> rgb;
};

/// Pairs of triangles (quads) at random places of the pictures, four vertices each.
inline Model patches(int count, int pictures, int width, int height, unsigned seed)
{
    std::mt19937 random(seed);
    const auto below = [&](int n) { return static_cast<int>(random() % static_cast<unsigned>(n)); };
    Model model;
    for (int i = 0; i < count; ++i) {
        const int w = 1 + below(width / 3), h = 1 + below(height / 3);
        const int x = below(width - w), y = below(height - h), view = below(pictures);
        const auto first = static_cast<std::uint32_t>(4 * i);
        for (int corner = 0; corner < 4; ++corner) {
            const auto px = static_cast<float>(x + corner % 2 * w),
                       py = static_cast<float>(y + corner / 2 * h);
            model.vertices.insert(model.vertices.end(), {px, py, static_cast<float>(i)});
            model.pixels.insert(model.pixels.end(), {px + 0.25F, py});
            model.views.push_back(view);
        }
        for (const std::uint32_t c : {0U, 1U, 2U, 1U, 3U, 2U}) model.indices.push_back(first + c);
    }
    return model;
}

inline const std::vector<Plain>& colouredPictures()
{
    static const std::vector<Plain> pictures = {
        {90, 60, 255, 0, 0}, {90, 60, 0, 0, 255}, {90, 60, 0, 255, 0}, {90, 60, 255, 255, 255}};
    return pictures;
}

inline std::vector<PictureView> views(const std::vector<Plain>& pictures)
{
    std::vector<PictureView> result;
    for (const Plain& p : pictures) result.push_back(p.view());
    return result;
}

}  // namespace scansteps::test
