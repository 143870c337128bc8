// Describes mesh and cloud records as JSON and as text.
#include "inspect_model.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <limits>
#include <span>

#include "scansteps/vertex_lists.h"

namespace scansteps::host {

namespace {

/// Smallest, largest and mean of each of the three columns.
Json statistics(std::span<const float> triples, bool withMean)
{
    constexpr double kInfinite = std::numeric_limits<double>::infinity();
    std::array<double, 3> low{kInfinite, kInfinite, kInfinite}, high{-kInfinite, -kInfinite, -kInfinite},
        sum{};
    for (std::size_t i = 0; i < triples.size(); ++i) {
        const double v = static_cast<double>(triples[i]);
        low[i % 3] = std::min(low[i % 3], v);
        high[i % 3] = std::max(high[i % 3], v);
        sum[i % 3] += v;
    }
    const std::size_t count = triples.size() / 3;
    Json result = {{"count", count}};
    if (count == 0) return result;
    result["min"] = low;
    result["max"] = high;
    for (double& s : sum) s /= static_cast<double>(count);
    if (withMean) result["mean"] = sum;
    return result;
}

Json describeMesh(const varitype& tria)
{
    Json mesh = Json::object();
    try {
        const auto vertices = floatList(tria, "Vertices", 3);
        mesh["vertices"] = statistics(vertices, false);
        const auto indices = indexList(tria, "Indices", 3);
        mesh["triangles"] = indices.size() / 3;
        const auto outside = std::count_if(indices.begin(), indices.end(),
                                           [&](std::uint32_t i) { return i >= vertices.size() / 3; });
        if (outside > 0) mesh["error"] = fmt::format("{} indices lie outside the vertices", outside);
        if (tria.has("Tricolors")) mesh["colours"] = statistics(floatList(tria, "Tricolors", 3), true);
        if (tria.has("Pixels")) mesh["pixels"] = floatList(tria, "Pixels", 2).size() / 2;
        if (tria.has("Views")) mesh["views"] = intList(tria, "Views").size();
    } catch (const char* text) {
        mesh["error"] = text;
    }
    return mesh;
}

Json describeCloud(const varitype& pns)
{
    Json cloud = Json::object();
    try {
        cloud["points"] = statistics(floatList(pns, "Points", 3), false);
        cloud["colours"] = statistics(floatList(pns, "Colors", 3), true);
    } catch (const char* text) {
        cloud["error"] = text;
    }
    return cloud;
}

Json describeImages(const varitype& images)
{
    Json list = Json::array();
    try {
        for (const varitype& image : images.as<StructArray>()) {
            if (!image.has("data")) {
                list.push_back("by handle");
                continue;
            }
            const varitype data = image["data"];
            const Array& pixels = data.as<Array>();
            list.push_back({{"width", pixels.dim(0) / 3}, {"height", pixels.dim(1)}});
        }
    } catch (const char* text) {
        list.push_back({{"error", text}});
    }
    return list;
}

std::string rangeText(const Json& s)
{
    if (!s.contains("min")) return "none";
    std::string text;
    for (const std::size_t axis : {0U, 1U, 2U})
        text += fmt::format("{}{:g} to {:g}", axis == 0 ? "" : ", ", s["min"][axis].get<double>(),
                            s["max"][axis].get<double>());
    return text;
}

std::string coloursText(const Json& s)
{
    if (!s.contains("mean")) return fmt::format("  {} colours\n", s["count"].get<std::size_t>());
    return fmt::format("  {} colours: {}, mean {:.1f}, {:.1f}, {:.1f}\n", s["count"].get<std::size_t>(),
                       rangeText(s), s["mean"][0].get<double>(), s["mean"][1].get<double>(),
                       s["mean"][2].get<double>());
}

}  // namespace

Json describeModel(const Struct& record)
{
    Json model = Json::object();
    if (const varitype* tria = record.find("tria")) model["mesh"] = describeMesh(*tria);
    if (const varitype* pns = record.find("pns")) model["cloud"] = describeCloud(*pns);
    if (const varitype* images = record.find("images")) model["images"] = describeImages(*images);
    return model;
}

std::string modelText(const Json& model)
{
    std::string text;
    const auto positions = [&](const Json& part, const char* key, const char* label) {
        if (!part.contains(key)) return;
        text +=
            fmt::format("  {} {}: {}\n", part[key]["count"].get<std::size_t>(), label, rangeText(part[key]));
    };
    const auto rest = [&](const Json& part) {
        if (part.contains("colours")) text += coloursText(part["colours"]);
        if (part.contains("error")) text += fmt::format("  broken: {}\n", part["error"].get<std::string>());
    };
    if (model.contains("mesh")) {
        const Json& mesh = model["mesh"];
        text += "  mesh\n";
        positions(mesh, "vertices", "vertices");
        if (mesh.contains("triangles"))
            text += fmt::format("  {} triangles\n", mesh["triangles"].get<std::size_t>());
        for (const char* key : {"pixels", "views"})
            if (mesh.contains(key)) text += fmt::format("  {} {}\n", mesh[key].get<std::size_t>(), key);
        rest(mesh);
    }
    if (model.contains("cloud")) {
        text += "  cloud\n";
        positions(model["cloud"], "points", "points");
        rest(model["cloud"]);
    }
    if (model.contains("images"))
        for (const Json& image : model["images"])
            text += image.contains("width") ? fmt::format("  image of {} x {}\n", image["width"].get<int>(),
                                                          image["height"].get<int>())
                                            : fmt::format("  image: {}\n", dumpLine(image));
    return text;
}

}  // namespace scansteps::host
