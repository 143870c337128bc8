// OBJ: corners are pairs of a vertex and a texture coordinate; every pair that occurs becomes a vertex.
#include <charconv>
#include <stdexcept>
#include <unordered_map>

#include "model_file.h"
#include "text_scanner.h"

namespace scansteps::viewer {

namespace {

class ObjReader
{
  public:
    explicit ObjReader(const std::function<std::string(const std::string&)>& fileOf) : fileOf_(fileOf) {}
    Mesh read(std::string_view bytes);

  private:
    void addFace(std::string_view line);
    std::uint32_t cornerOf(std::string_view word);
    std::size_t index(std::string_view text, std::size_t count) const;
    void readMaterials(const std::string& name);

    const std::function<std::string(const std::string&)>& fileOf_;
    Mesh mesh_;
    std::vector<float> places_, coordinates_;
    std::vector<std::uint32_t> first_;       // vertex made first of each place, + 1
    std::vector<std::uint32_t> coordinate_;  // of each vertex, + 1
    std::unordered_map<std::uint64_t, std::uint32_t> others_;
    std::unordered_map<std::string, std::int32_t> materials_;
    std::int32_t material_ = -1;
    std::vector<std::uint32_t> corners_;
};

// From 1; negative numbers count back from the last one.
std::size_t ObjReader::index(std::string_view text, std::size_t count) const
{
    std::int64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size()) throw std::runtime_error("a face is wrong");
    if (number < 0) number += std::int64_t(count) + 1;
    if (number < 1 || std::uint64_t(number) > count)
        throw std::runtime_error("a face names a vertex that is not there");
    return std::size_t(number) - 1;
}

std::uint32_t ObjReader::cornerOf(std::string_view word)
{
    const std::size_t slash = word.find('/');
    const std::size_t place = index(word.substr(0, slash), places_.size() / 3);
    std::uint32_t coordinate = 0;
    if (slash != std::string_view::npos) {
        const std::string_view rest = word.substr(slash + 1);
        const std::string_view text = rest.substr(0, rest.find('/'));
        if (!text.empty()) coordinate = std::uint32_t(index(text, coordinates_.size() / 2)) + 1;
    }
    if (first_.size() < places_.size() / 3) first_.resize(places_.size() / 3);
    const auto make = [&] {
        const auto made = std::uint32_t(coordinate_.size());
        for (std::size_t i = 0; i < 3; ++i) mesh_.positions.push_back(places_[3 * place + i]);
        for (std::size_t i = 0; i < 2; ++i)
            mesh_.uv.push_back(coordinate != 0 ? coordinates_[2 * (coordinate - 1) + i] : 0);
        coordinate_.push_back(coordinate);
        return made;
    };
    if (first_[place] == 0) {
        first_[place] = make() + 1;
        return first_[place] - 1;
    }
    if (coordinate_[first_[place] - 1] == coordinate) return first_[place] - 1;
    const auto [found, isNew] = others_.try_emplace(std::uint64_t{place} << 32U | coordinate, 0);
    if (isNew) found->second = make();
    return found->second;
}

void ObjReader::addFace(std::string_view line)
{
    corners_.clear();
    TextScanner words(line);
    for (std::string_view word = words.word(); !word.empty(); word = words.word())
        corners_.push_back(cornerOf(word));
    for (std::size_t corner = 2; corner < corners_.size(); ++corner) {
        for (const std::uint32_t vertex : {corners_[0], corners_[corner - 1], corners_[corner]})
            mesh_.indices.push_back(vertex);
        mesh_.views.push_back(material_);
    }
}

void ObjReader::readMaterials(const std::string& name)
{
    const std::string text = fileOf_(name);
    TextScanner scanner(text);
    std::string material;
    while (!scanner.atEnd()) {
        const std::string_view keyword = scanner.word();
        const std::string_view value = scanner.line();
        if (keyword == "newmtl") material = value;
        if (keyword != "map_Kd") continue;
        const std::string file = fileOf_(std::string(value));
        if (file.empty()) continue;
        materials_[material] = std::int32_t(mesh_.textures.size());
        mesh_.textures.push_back({{}, 0, 0, Bytes(file.begin(), file.end())});
    }
}

Mesh ObjReader::read(std::string_view bytes)
{
    TextScanner scanner(bytes);
    while (!scanner.atEnd()) {
        const std::string_view keyword = scanner.word();
        if (keyword == "v") {
            for (int i = 0; i < 3; ++i) places_.push_back(scanner.number<float>());
        } else if (keyword == "vt") {
            for (int i = 0; i < 2; ++i) coordinates_.push_back(scanner.number<float>());
        }
        const std::string_view line = scanner.line();
        if (keyword == "f") addFace(line);
        if (keyword == "mtllib") readMaterials(std::string(line));
        if (keyword == "usemtl") {
            const auto found = materials_.find(std::string(line));
            material_ = found != materials_.end() ? found->second : -1;
        }
    }
    if (mesh_.indices.empty()) mesh_.positions = std::move(places_);
    if (coordinates_.empty() || mesh_.textures.empty() || mesh_.indices.empty()) {
        mesh_.uv.clear();
        mesh_.views.clear();
    }
    return std::move(mesh_);
}

}  // namespace

Mesh parseObj(std::string_view bytes, const std::function<std::string(const std::string&)>& fileOf)
{
    return ObjReader(fileOf).read(bytes);
}

}  // namespace scansteps::viewer
