// STL: triangles with three corners each, which are joined where they are equal.
#include <array>
#include <bit>
#include <cstring>
#include <stdexcept>
#include <unordered_map>

#include "model_file.h"
#include "text_scanner.h"

namespace scansteps::viewer {

namespace {

using Corner = std::array<float, 3>;

struct CornerHash
{
    std::size_t operator()(const Corner& corner) const
    {
        std::uint64_t hash = 0;
        for (const float value : corner)
            hash = (hash ^ std::bit_cast<std::uint32_t>(value)) * 0x9E3779B97F4A7C15ULL;
        return hash ^ (hash >> 29U);
    }
};

class Joiner
{
  public:
    explicit Joiner(Mesh& mesh, std::size_t triangles) : mesh_(mesh)
    {
        known_.reserve(triangles / 2);
        mesh_.indices.reserve(3 * triangles);
    }
    void add(Corner corner)
    {
        for (float& value : corner) value += 0.0F;  // -0 equals 0
        const auto [found, isNew] = known_.try_emplace(corner, std::uint32_t(known_.size()));
        if (isNew) mesh_.positions.insert(mesh_.positions.end(), corner.begin(), corner.end());
        mesh_.indices.push_back(found->second);
    }

  private:
    Mesh& mesh_;
    std::unordered_map<Corner, std::uint32_t, CornerHash> known_;
};

Mesh parseText(std::string_view bytes)
{
    Mesh mesh;
    Joiner joiner(mesh, bytes.size() / 300);
    TextScanner scanner(bytes);
    while (!scanner.atEnd()) {
        if (scanner.word() == "vertex") {
            Corner corner{};
            for (float& value : corner) value = scanner.number<float>();
            joiner.add(corner);
        }
        scanner.line();
    }
    if (mesh.indices.empty() || mesh.indices.size() % 3 != 0)
        throw std::runtime_error("it holds no triangles");
    return mesh;
}

}  // namespace

Mesh parseStl(std::string_view bytes)
{
    constexpr std::size_t kHeader = 84, kTriangle = 50;
    std::uint32_t triangles = 0;
    if (bytes.size() >= kHeader) std::memcpy(&triangles, bytes.data() + 80, sizeof triangles);
    const bool isBinary =
        bytes.size() >= kHeader && (bytes.size() - kHeader) / kTriangle >= triangles && triangles > 0;
    if (!isBinary ||
        (bytes.starts_with("solid") && kHeader + std::size_t{triangles} * kTriangle != bytes.size()))
        return parseText(bytes);
    Mesh mesh;
    Joiner joiner(mesh, triangles);
    bool anyColour = false;
    for (std::size_t i = 0; i < triangles; ++i) {
        std::array<float, 12> numbers{};
        std::memcpy(numbers.data(), bytes.data() + kHeader + i * kTriangle, 48);
        for (std::size_t corner = 1; corner < 4; ++corner)
            joiner.add({numbers[3 * corner], numbers[3 * corner + 1], numbers[3 * corner + 2]});
        std::uint16_t attribute = 0;
        std::memcpy(&attribute, bytes.data() + kHeader + i * kTriangle + 48, sizeof attribute);
        const bool isColoured = (attribute & 0x8000U) != 0;
        anyColour = anyColour || isColoured;
        for (const unsigned shift : {10U, 5U, 0U})
            mesh.faceColours.push_back(isColoured ? std::uint8_t(((attribute >> shift) & 31U) * 255 / 31)
                                                  : std::uint8_t{200});
    }
    if (!anyColour) mesh.faceColours.clear();
    return mesh;
}

}  // namespace scansteps::viewer
