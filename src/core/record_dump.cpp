// Human-readable form of records.
#include <cstdio>
#include <string>

#include "scansteps/printable.h"
#include "scansteps/record.h"

namespace scansteps {

namespace {

template <class... Values>
std::string formatted(const char* format, Values... values)
{
    char text[64];
    std::snprintf(text, sizeof text, format, values...);
    return text;
}

std::string scalarText(const varitype& value)
{
    switch (value.kind()) {
        case Kind::Char:
            return std::to_string(value.as<std::int8_t>());
        case Kind::Uchar:
            return std::to_string(value.as<std::uint8_t>());
        case Kind::Short:
            return std::to_string(value.as<std::int16_t>());
        case Kind::Ushort:
            return std::to_string(value.as<std::uint16_t>());
        case Kind::Int:
            return std::to_string(value.as<std::int32_t>());
        case Kind::Uint:
            return std::to_string(value.as<std::uint32_t>());
        case Kind::Half:
            return formatted("%g", double(float(value.as<Half>())));
        case Kind::Float:
            return formatted("%g", double(value.as<float>()));
        case Kind::Double:
            return formatted("%g", value.as<double>());
        case Kind::String:
            return "\"" + printable(value.as<std::string>()) + "\"";
        default:
            return "";
    }
}

void append(std::string& text, const std::string& path, const std::string& indent, const varitype& value)
{
    const std::string head = indent + printable(path) + " " + kindTypeName(value.kind());
    switch (value.kind()) {
        case Kind::Struct:
            text += head + "[] {\n";
            if (value.hasPayload())
                for (const auto& entry : value.as<Struct>())
                    append(text, entry.name, indent + "  ", entry.value);
            text += indent + "}\n";
            break;
        case Kind::Array: {
            const Array& array = value.as<Array>();
            text += head + " " + kindTypeName(array.kind()) + " " + std::to_string(array.dim(0)) + " x " +
                    std::to_string(array.dim(1)) + " x " + std::to_string(array.dim(2)) +
                    " size =" + std::to_string(array.byteSize()) + "\n";
            break;
        }
        case Kind::StructArray: {
            const StructArray& elements = value.as<StructArray>();
            text += head + " size =" + std::to_string(elements.size()) + "\n";
            for (std::size_t i = 0; i < elements.size(); ++i)
                append(text, "[" + std::to_string(i) + "]", indent + "  ", elements[i]);
            break;
        }
        default:
            text += head + " = " + scalarText(value) + "\n";
            break;
    }
}

}  // namespace

std::string dumpText(const varitype& value, std::string_view prefix)
{
    std::string text;
    append(text, std::string(prefix), "", value);
    return text;
}

void dump(const varitype& value, std::string_view prefix)
{
    const std::string text = dumpText(value, prefix);
    std::fwrite(text.data(), 1, text.size(), stdout);
}

}  // namespace scansteps
