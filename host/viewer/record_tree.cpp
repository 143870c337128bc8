// Walks to the value and describes its children.
#include "record_tree.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <optional>

#include "library/json_values.h"

namespace scansteps::viewer {

namespace {

using host::Json;

std::string shortened(const std::string& text)
{
    constexpr std::size_t kLongest = 120;
    return text.size() <= kLongest ? text : text.substr(0, kLongest) + "…";
}

std::optional<varitype> childOf(const varitype& parent, const std::string& key)
{
    if (parent.kind() == Kind::Struct && parent.hasPayload()) {
        const varitype* child = parent.as<Struct>().find(key);
        return child != nullptr ? std::optional(*child) : std::nullopt;
    }
    if (parent.kind() != Kind::StructArray) return std::nullopt;
    std::size_t index = 0;
    const auto [end, error] = std::from_chars(key.data(), key.data() + key.size(), index);
    const auto& list = parent.as<StructArray>();
    if (error != std::errc() || end != key.data() + key.size() || index >= list.size()) return std::nullopt;
    return list[index];
}

std::string shapeOf(const varitype& value)
{
    switch (value.kind()) {
        case Kind::Struct:
            return fmt::format("{} entries", value.hasPayload() ? value.as<Struct>().size() : 0);
        case Kind::StructArray:
            return fmt::format("{} records", value.as<StructArray>().size());
        case Kind::Array: {
            const Array& array = value.as<Array>();
            return fmt::format("{} × {} × {}", array.dim(0), array.dim(1), array.dim(2));
        }
        default:
            return "";
    }
}

Json described(const std::string& key, const varitype& value)
{
    Json child = {{"key", key}, {"kind", kindTypeName(value.kind())}};
    const bool isNested = value.kind() >= Kind::Struct;
    if (isNested) {
        child["shape"] = shapeOf(value);
        child["open"] = true;
        if (value.kind() == Kind::Array) child["elements"] = kindTypeName(value.as<Array>().kind());
    } else if (value.kind() == Kind::String) {
        child["value"] = shortened(value.as<std::string>());
    } else if (value.kind() != Kind::Empty) {
        const Json json = host::jsonFromValue(value);
        child["value"] = host::dumpLine(json.is_object() ? json.begin().value() : json);
    }
    return child;
}

// A page of elements, without making the others.
Json elementsOf(const Array& array, std::uint64_t first, std::uint64_t count)
{
    const std::size_t size = elementSize(array.kind());
    Array page(array.kind(), std::uint32_t(count), 1);
    std::copy_n(array.data() + first * size, count * size, page.data());
    const Json json = host::jsonFromValue(varitype(std::move(page)), {.arrayData = true});
    Json children = Json::array();
    for (const Json& element : json["Array"]["data"]) {
        const std::uint64_t at = first + children.size();
        const std::uint32_t row = array.dim(0);
        children.push_back(
            {{"key", fmt::format("{}, {}", at % row, at / row)}, {"value", host::dumpLine(element)}});
    }
    return children;
}

}  // namespace

Json recordPage(const varitype& record, const std::vector<std::string>& path, std::uint64_t first)
{
    Json page = {{"path", path}, {"first", first}};
    std::optional<varitype> value = record;
    for (const std::string& key : path)
        if (value) value = childOf(*value, key);
    if (!value) {
        page["error"] = "the record has no such entry";
        return page;
    }
    Json children = Json::array();
    std::uint64_t count = 0;
    const auto isShown = [&](std::uint64_t at) { return at >= first && at - first < kPage; };
    if (value->kind() == Kind::Struct && value->hasPayload()) {
        for (const auto& [key, child] : value->as<Struct>())
            if (isShown(count++)) children.push_back(described(key, child));
    } else if (value->kind() == Kind::StructArray) {
        const auto& list = value->as<StructArray>();
        count = list.size();
        for (std::uint64_t at = first; at < count && isShown(at); ++at)
            children.push_back(described(std::to_string(at), list[at]));
    } else if (value->kind() == Kind::Array) {
        const Array& array = value->as<Array>();
        count = array.size();
        if (first < count) children = elementsOf(array, first, std::min(kPage, count - first));
    }
    page["count"] = count;
    page["children"] = std::move(children);
    return page;
}

}  // namespace scansteps::viewer
