// Finds the entries that the feature steps make. Records may come from files: whatever has another shape than
// those steps give it is left out.
#include "overlays.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <span>

namespace scansteps::viewer {

namespace {

constexpr std::size_t kMaxNumbers = std::size_t{1} << 18;  // of a sort

// The elements of a float array of `width` numbers a row; empty when it is not one.
template <class T>
std::span<const T> table(const Struct& record, const char* name, std::uint32_t width)
{
    const varitype* entry = record.find(name);
    if (entry == nullptr || entry->kind() != Kind::Array) return {};
    const Array& array = entry->as<Array>();
    return array.dim(0) == width ? array.elements<T>() : std::span<const T>{};
}

const StructArray* linesOf(const Struct& record)
{
    const varitype* lines = record.find("fvertsArray");
    return lines != nullptr && lines->kind() == Kind::StructArray ? &lines->as<StructArray>() : nullptr;
}

class Collector
{
  public:
    explicit Collector(Overlays& result) : result_(result) {}
    void begin(const char* name)
    {
        name_ = name;
        first_ = result_.numbers.size();
    }
    // False when there is no room.
    bool add(std::initializer_list<float> numbers)
    {
        if (result_.numbers.size() - first_ + numbers.size() > kMaxNumbers) {
            result_.head["more"].push_back(name_);
            return false;
        }
        for (const float number : numbers) result_.numbers.push_back(std::isfinite(number) ? number : -1e6F);
        return true;
    }
    void end()
    {
        if (result_.numbers.size() != first_) result_.head[name_] = {first_, result_.numbers.size() - first_};
    }

  private:
    Overlays& result_;
    const char* name_ = "";
    std::size_t first_ = 0;
};

void addCorners(const Struct& record, Collector& to)
{
    const auto places = table<float>(record, "vert", 2);
    const auto attributes = table<std::uint32_t>(record, "vertAttr", 16);
    to.begin("corners");
    for (std::size_t i = 0; i < places.size() / 2; ++i) {
        const bool isKnown = 16 * i + 4 < attributes.size();
        const float angle = isKnown ? std::bit_cast<float>(attributes[16 * i + 3]) : 0;
        const float size = isKnown ? std::bit_cast<float>(attributes[16 * i + 4]) : 0;
        if (!to.add({places[2 * i], places[2 * i + 1], size, angle})) break;
    }
    to.end();
}

void addLines(const Struct& record, Collector& to, Json& head)
{
    const StructArray* lines = linesOf(record);
    if (lines == nullptr) return;
    Json ends = Json::array();
    std::int64_t vertices = 0;
    to.begin("lines");
    for (const varitype& line : *lines) {
        if (!line.hasPayload()) continue;
        const auto numbers = table<float>(line.as<Struct>(), "verts", 2);
        bool isRoom = true;
        for (std::size_t i = 0; i + 1 < numbers.size() && isRoom; i += 2) {
            isRoom = to.add({numbers[i], numbers[i + 1]});
            vertices += isRoom ? 1 : 0;
        }
        const varitype* closed = line.as<Struct>().find("closed");
        const bool isClosed =
            closed != nullptr && closed->kind() == Kind::Int && closed->as<std::int32_t>() != 0;
        ends.push_back(isClosed ? -vertices : vertices);
        if (!isRoom) break;
    }
    to.end();
    head["lineEnds"] = std::move(ends);
}

// Regions that edges enclose are given by their boxes, stable ones by ellipses; in the table only the numbers
// tell which.
bool areBoxes(std::span<const float> regions)
{
    for (std::size_t i = 0; i + 7 < regions.size(); i += 8) {
        const float* r = &regions[i];
        const bool isInside = r[3] <= r[0] && r[0] <= r[5] && r[4] <= r[1] && r[1] <= r[6];
        if (!isInside || (r[7] != 0 && r[7] != 1)) return false;
    }
    return true;
}

void addRegions(const Struct& record, Collector& to)
{
    const auto regions = table<float>(record, "regions", 8);
    const bool isBox = areBoxes(regions);
    to.begin(isBox ? "boxes" : "ellipses");
    for (std::size_t i = 0; i + 7 < regions.size(); i += 8) {
        const float* r = &regions[i];
        if (!(isBox ? to.add({r[3], r[4], r[5], r[6]}) : to.add({r[0], r[1], r[3], r[4], r[5]}))) break;
    }
    to.end();
}

void addMatches(const Struct& record, Collector& to)
{
    const auto matches = table<float>(record, "matches", 6);
    to.begin("matches");
    for (std::size_t i = 0; i + 5 < matches.size(); i += 6)
        if (!to.add({matches[i], matches[i + 1], matches[i + 2], matches[i + 3], matches[i + 5]})) break;
    to.end();
}

void addOutline(const Struct& record, const Layout& layout, Collector& to)
{
    const auto m = table<float>(record, "transform", 3);
    if (m.size() != 9 || layout.width == 0) return;
    const float right = float(layout.width) - 0.5F, bottom = float(layout.height) - 0.5F;
    to.begin("outline");
    for (const auto& [x, y] : {std::array{-0.5F, -0.5F}, {right, -0.5F}, {right, bottom}, {-0.5F, bottom}}) {
        const float w = m[6] * x + m[7] * y + m[8];
        if (!(std::abs(w) > 1e-6F)) return;
        to.add({(m[0] * x + m[1] * y + m[2]) / w, (m[3] * x + m[4] * y + m[5]) / w});
    }
    to.end();
}

}  // namespace

Json countOverlays(const Struct& record)
{
    Json counts = Json::object();
    if (record.has("vert")) counts["corners"] = table<float>(record, "vert", 2).size() / 2;
    if (const StructArray* lines = linesOf(record)) counts["lines"] = lines->size();
    if (record.has("regions")) counts["regions"] = table<float>(record, "regions", 8).size() / 8;
    if (record.has("matches")) counts["matches"] = table<float>(record, "matches", 6).size() / 6;
    if (record.has("transform")) counts["outline"] = table<float>(record, "transform", 3).size() / 9;
    return counts;
}

Overlays overlaysOf(const Struct& record, const Layout& layout)
{
    Overlays result;
    Collector to(result);
    addCorners(record, to);
    addLines(record, to, result.head);
    addRegions(record, to);
    addMatches(record, to);
    addOutline(record, layout, to);
    result.head["counts"] = countOverlays(record);
    return result;
}

}  // namespace scansteps::viewer
