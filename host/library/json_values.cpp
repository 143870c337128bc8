// Values from JSON, and what values.h offers of both directions.
#include "json_values.h"

#include <fmt/format.h>

#include <cmath>
#include <limits>
#include <optional>

#include "element_type.h"
#include "values.h"

namespace scansteps::host {

namespace {

[[noreturn]] void failValue(const std::string& where, const std::string& what)
{
    throw UsageError{fmt::format("{}: {}", where, what)};
}

std::optional<Kind> kindOfTypeName(const std::string& name)
{
    for (std::uint32_t code = 0; code < kKindCount; ++code)
        if (name == kindTypeName(Kind(code))) return Kind(code);
    return std::nullopt;
}

// A double that may be written as text: JSON has no NaN and no infinity.
double realFromJson(const Json& json, const std::string& where)
{
    if (json.is_number()) return json.get<double>();
    if (json.is_boolean()) return json.get<bool>() ? 1 : 0;
    if (json.is_string()) {
        const auto text = json.get<std::string>();
        if (text == "nan") return std::numeric_limits<double>::quiet_NaN();
        if (text == "inf") return std::numeric_limits<double>::infinity();
        if (text == "-inf") return -std::numeric_limits<double>::infinity();
    }
    failValue(where, fmt::format("{} is not a number", dumpLine(json)));
}

template <class T>
T integerFromJson(const Json& json, const std::string& where)
{
    const double value = realFromJson(json, where);
    if (!(value >= double(std::numeric_limits<T>::min()) && value <= double(std::numeric_limits<T>::max())) ||
        value != std::trunc(value))
        failValue(where, fmt::format("{} does not fit {}", dumpLine(json), kindTypeName(kindOf<T>())));
    return static_cast<T>(value);
}

float floatFromJson(const Json& json, const std::string& where)
{
    const double value = realFromJson(json, where);
    if (std::isfinite(value) && std::abs(value) > double(std::numeric_limits<float>::max()))
        failValue(where, fmt::format("{} does not fit Float", dumpLine(json)));
    return static_cast<float>(value);
}

template <class T>
T elementFromJson(const Json& json, const std::string& where)
{
    if constexpr (std::is_same_v<T, Half>)
        return Half(floatFromJson(json, where));
    else if constexpr (std::is_same_v<T, float>)
        return floatFromJson(json, where);
    else if constexpr (std::is_same_v<T, double>)
        return realFromJson(json, where);
    else
        return integerFromJson<T>(json, where);
}

Array arrayFromJson(const Json& json, const std::string& where)
{
    const auto fail = [&](const char* what) { failValue(where, what); };
    if (!json.is_object() || !json.contains("type") || !json["type"].is_string() || !json.contains("dims"))
        fail("an Array needs \"type\" and \"dims\"");
    const auto kind = kindOfTypeName(json["type"].get<std::string>());
    if (!kind || *kind > Kind::Double) fail("no such element type");
    const Json& dims = json["dims"];
    if (!dims.is_array() || dims.size() != 3) fail("\"dims\" is three numbers");
    std::uint32_t d[3];
    for (std::size_t i = 0; i < 3; ++i) d[i] = integerFromJson<std::uint32_t>(dims[i], where);
    const Json data = json.value("data", Json::array());
    const double count = double(d[0]) * d[1] * d[2];
    // Without data an array is zeroed; its size is bounded like a frame's.
    if (!data.is_array() || (!data.empty() && double(data.size()) != count) || count > double(1U << 30))
        fail("\"data\" does not have the number of elements that \"dims\" says");
    Array array(*kind, d[0], d[1], d[2]);
    withElementType(*kind, [&](auto* type) {
        using T = std::remove_pointer_t<decltype(type)>;
        const auto elements = array.elements<T>();
        for (std::size_t i = 0; i < data.size() && i < elements.size(); ++i)
            elements[i] = elementFromJson<T>(data[i], where);
    });
    return array;
}

Struct structFromJson(const Json& json, const std::string& where)
{
    if (!json.is_object()) failValue(where, "an object was expected");
    Struct result;
    for (const auto& [key, member] : json.items()) {
        std::string place = where;
        place += "." + key;
        varitype value = valueFromJson(member, place);
        if (!(value.kind() == Kind::Empty && !isForcedKind(member))) result.set(key, std::move(value));
    }
    return result;
}

StructArray structArrayFromJson(const Json& json, const std::string& where)
{
    if (!json.is_array()) failValue(where, "a StructArray is a list of objects");
    StructArray result;
    for (const Json& element : json) result.emplace_back(structFromJson(element, where));
    return result;
}

}  // namespace

bool isForcedKind(const Json& json)
{
    return json.is_object() && json.size() == 1 && kindOfTypeName(json.begin().key()).has_value();
}

varitype valueFromJson(const Json& json, const std::string& where)
{
    if (isForcedKind(json))
        return valueFromJson(json.begin().value(), *kindOfTypeName(json.begin().key()), where);
    switch (json.type()) {
        case Json::value_t::null:
            return {};
        case Json::value_t::boolean:
            return json.get<bool>() ? varitype(1) : varitype();
        case Json::value_t::number_integer:
        case Json::value_t::number_unsigned:
            return integerFromJson<std::int32_t>(json, where);
        case Json::value_t::number_float:
            return floatFromJson(json, where);
        case Json::value_t::string:
            return json.get<std::string>();
        case Json::value_t::object:
            return structFromJson(json, where);
        default:
            break;
    }
    failValue(where, "a list stands for nothing; write {\"Array\": ...} or {\"StructArray\": [...]}");
}

varitype valueFromJson(const Json& json, Kind kind, const std::string& where)
{
    switch (kind) {
        case Kind::Empty:
            return {};
        case Kind::String:
            if (!json.is_string()) failValue(where, fmt::format("{} is not a text", dumpLine(json)));
            return json.get<std::string>();
        case Kind::Struct: {
            if (!json.is_null()) return structFromJson(json, where);
            varitype bare;
            bare.setKind(Kind::Struct);
            return bare;
        }
        case Kind::Array:
            return arrayFromJson(json, where);
        case Kind::StructArray:
            return structArrayFromJson(json, where);
        default:
            break;
    }
    varitype result;
    withElementType(kind, [&](auto* type) {
        using T = std::remove_pointer_t<decltype(type)>;
        result = varitype(elementFromJson<T>(json, where));
    });
    return result;
}

std::string dumpLine(const Json& json)
{
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

std::optional<varitype> converted(const varitype& value, Kind kind, const std::string& where)
{
    const Json json = jsonFromValue(value);
    if (isForcedKind(json)) return std::nullopt;
    return valueFromJson(json, kind, where);
}

std::string lineOf(const varitype& value)
{
    return dumpLine(jsonFromValue(value));
}

}  // namespace scansteps::host
