// Opens a model and the files beside it.
#include "model_file.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <stdexcept>

#include "library/descriptors.h"
#include "library/platform.h"
#include "scansteps/host.h"

namespace scansteps::viewer {

namespace {

// Materials and pictures lie in the folder of the model; a model may not name others.
std::string neighbour(const std::filesystem::path& model, const std::string& name)
{
    const std::filesystem::path path = host::pathFromUtf8(name);
    if (name.empty() || path.filename() != path) return "";
    return host::descriptor::readFile(host::utf8FromPath(model.parent_path() / path)).value_or("");
}

}  // namespace

Mesh readModel(const std::string& path)
{
    const auto bytes = host::descriptor::readFile(path);
    if (!bytes) throw host::FileError(fmt::format("cannot read {}", path));
    std::string ending = path.substr(path.size() - std::min<std::size_t>(path.size(), 4));
    std::transform(ending.begin(), ending.end(), ending.begin(),
                   [](unsigned char c) { return char(std::tolower(c)); });
    Mesh mesh;
    try {
        if (ending == ".ply")
            mesh = parsePly(*bytes);
        else if (ending == ".stl")
            mesh = parseStl(*bytes);
        else
            mesh = parseObj(
                *bytes, [&](const std::string& name) { return neighbour(host::pathFromUtf8(path), name); });
    } catch (const std::exception& error) {
        throw host::FileError(fmt::format("{}: {}", path, error.what()));
    }
    if (mesh.positions.empty()) throw host::FileError(fmt::format("{} holds no vertices", path));
    return mesh;
}

}  // namespace scansteps::viewer
