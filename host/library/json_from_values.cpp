// JSON from values.
#include <cmath>

#include "element_type.h"
#include "json_values.h"

namespace scansteps::host {

namespace {

Json jsonFromReal(double value, Kind kind)
{
    Json number = value;
    if (!std::isfinite(value)) number = std::isnan(value) ? "nan" : value > 0 ? "inf" : "-inf";
    if (kind == Kind::Float && std::isfinite(value)) return number;
    return Json{{kindTypeName(kind), number}};
}

Json jsonFromArray(const Array& array, const JsonOptions& options)
{
    Json json = {{"type", kindTypeName(array.kind())},
                 {"dims", {array.dim(0), array.dim(1), array.dim(2)}},
                 {"bytes", array.byteSize()}};
    if (!options.arrayData) return json;
    Json data = Json::array();
    withElementType(array.kind(), [&](auto* type) {
        using T = std::remove_pointer_t<decltype(type)>;
        for (const T& element : array.elements<T>()) {
            if constexpr (std::is_same_v<T, Half>)
                data.push_back(double(float(element)));
            else
                data.push_back(element);
        }
    });
    json["data"] = std::move(data);
    return json;
}

}  // namespace

Json jsonFromRecord(const Struct& record, const JsonOptions& options)
{
    Json json = Json::object();
    for (const auto& [name, value] : record) json[name] = jsonFromValue(value, options);
    return json;
}

Json jsonFromValue(const varitype& value, const JsonOptions& options)
{
    const Kind kind = value.kind();
    const auto forced = [&](Json json) { return Json{{kindTypeName(kind), std::move(json)}}; };
    switch (kind) {
        case Kind::Empty:
            return forced(nullptr);
        case Kind::Char:
            return forced(value.as<std::int8_t>());
        case Kind::Uchar:
            return forced(value.as<std::uint8_t>());
        case Kind::Short:
            return forced(value.as<std::int16_t>());
        case Kind::Ushort:
            return forced(value.as<std::uint16_t>());
        case Kind::Int:
            return value.as<std::int32_t>();
        case Kind::Uint:
            return forced(value.as<std::uint32_t>());
        case Kind::Half:
            return jsonFromReal(double(float(value.as<Half>())), kind);
        case Kind::Float:
            return jsonFromReal(double(value.as<float>()), kind);
        case Kind::Double:
            return jsonFromReal(value.as<double>(), kind);
        case Kind::String:
            return value.as<std::string>();
        case Kind::Struct: {
            if (!value.hasPayload()) return forced(nullptr);
            Json json = jsonFromRecord(value.as<Struct>(), options);
            return isForcedKind(json) ? forced(std::move(json)) : json;
        }
        case Kind::Array:
            return forced(jsonFromArray(value.as<Array>(), options));
        case Kind::StructArray: {
            Json list = Json::array();
            for (const varitype& element : value.as<StructArray>())
                list.push_back(jsonFromRecord(element.as<Struct>(), options));
            return forced(std::move(list));
        }
    }
    return nullptr;
}

}  // namespace scansteps::host
