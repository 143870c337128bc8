// PLY: the header says what follows; readers of numbers for text and for binary files of both byte orders.
#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <optional>
#include <stdexcept>
#include <string>

#include "model_file.h"
#include "text_scanner.h"

namespace scansteps::viewer {

namespace {

[[noreturn]] void refuse(const std::string& what)
{
    throw std::runtime_error(what);
}

enum class Sort
{
    Int8,
    Uint8,
    Int16,
    Uint16,
    Int32,
    Uint32,
    Float32,
    Float64,
};
constexpr std::array<std::size_t, 8> kSizes = {1, 1, 2, 2, 4, 4, 4, 8};

Sort sortNamed(std::string_view name)
{
    static constexpr std::array<std::array<std::string_view, 2>, 8> kNames = {{{"char", "int8"},
                                                                               {"uchar", "uint8"},
                                                                               {"short", "int16"},
                                                                               {"ushort", "uint16"},
                                                                               {"int", "int32"},
                                                                               {"uint", "uint32"},
                                                                               {"float", "float32"},
                                                                               {"double", "float64"}}};
    for (std::size_t i = 0; i < kNames.size(); ++i)
        if (name == kNames[i][0] || name == kNames[i][1]) return Sort(i);
    refuse("a property of an unknown type");
}

struct Property
{
    std::string name;
    Sort sort = Sort::Float32;
    std::optional<Sort> count = {};  // of a list
};

struct Element
{
    std::string name;
    std::uint64_t count = 0;
    std::vector<Property> properties;
};

enum class Form
{
    Text,
    Little,
    Big,
};

struct Header
{
    Form form = Form::Text;
    std::vector<Element> elements;
};

Header readHeader(TextScanner& scanner)
{
    constexpr std::size_t kMaxProperties = 1000;
    Header header;
    if (scanner.line() != "ply") refuse("it does not begin with \"ply\"");
    for (std::size_t properties = 0; properties < kMaxProperties; scanner.line()) {
        if (scanner.atEnd()) refuse("the header does not end");
        const std::string_view keyword = scanner.word();
        if (keyword == "end_header") {
            scanner.line();
            return header;
        }
        if (keyword == "format") {
            const std::string_view form = scanner.word();
            header.form = form == "ascii"               ? Form::Text
                          : form == "binary_big_endian" ? Form::Big
                                                        : Form::Little;
        } else if (keyword == "element") {
            const std::string_view name = scanner.word();
            header.elements.push_back({std::string(name), scanner.number<std::uint64_t>(), {}});
        } else if (keyword == "property") {
            if (header.elements.empty()) refuse("a property without an element");
            Property property;
            std::string_view type = scanner.word();
            if (type == "list") {
                property.count = sortNamed(scanner.word());
                type = scanner.word();
            }
            property.sort = sortNamed(type);
            property.name = scanner.word();
            header.elements.back().properties.push_back(std::move(property));
            ++properties;
        }
    }
    refuse("too many properties");
}

class TextValues
{
  public:
    explicit TextValues(std::string_view bytes) : scanner_(bytes) {}
    double next(Sort)
    {
        scanner_.skipSpace();
        return scanner_.number<double>();
    }
    static std::size_t least(Sort) { return 2; }  // a digit and a blank
    std::size_t left() const { return scanner_.rest().size() + 1; }

  private:
    TextScanner scanner_;
};

class BinaryValues
{
  public:
    BinaryValues(std::string_view bytes, bool isBig) : bytes_(bytes), isBig_(isBig) {}
    double next(Sort sort)
    {
        std::array<char, 8> raw{};
        const std::size_t size = kSizes[std::size_t(sort)];
        if (bytes_.size() < size) refuse("the file ends too early");
        std::copy_n(bytes_.data(), size, raw.data());
        if (isBig_) std::reverse(raw.data(), raw.data() + size);
        bytes_.remove_prefix(size);
        switch (sort) {
            case Sort::Int8:
                return double(as<std::int8_t>(raw));
            case Sort::Uint8:
                return double(as<std::uint8_t>(raw));
            case Sort::Int16:
                return double(as<std::int16_t>(raw));
            case Sort::Uint16:
                return double(as<std::uint16_t>(raw));
            case Sort::Int32:
                return double(as<std::int32_t>(raw));
            case Sort::Uint32:
                return double(as<std::uint32_t>(raw));
            case Sort::Float32:
                return double(as<float>(raw));
            default:
                return as<double>(raw);
        }
    }
    static std::size_t least(Sort sort) { return kSizes[std::size_t(sort)]; }
    std::size_t left() const { return bytes_.size(); }

  private:
    template <class T>
    static T as(const std::array<char, 8>& raw)
    {
        T value;
        std::memcpy(&value, raw.data(), sizeof value);
        return value;
    }
    std::string_view bytes_;
    bool isBig_;
};

std::uint8_t colourOf(double value, Sort sort)
{
    const double scaled = sort == Sort::Float32 || sort == Sort::Float64 ? value * 255 : value;
    return scaled > 0 ? std::uint8_t(std::min(scaled, 255.0)) : std::uint8_t{0};
}

// Where the values of a property go: a list and the place in its group, or nowhere.
struct Target
{
    enum class List
    {
        None,
        Position,
        Normal,
        Uv,
        Colour,
    } list = List::None;
    std::size_t at = 0;
};

Target targetOf(const std::string& name)
{
    using enum Target::List;
    static const std::array<std::pair<const char*, Target>, 14> kTargets = {{{"x", {Position, 0}},
                                                                             {"y", {Position, 1}},
                                                                             {"z", {Position, 2}},
                                                                             {"nx", {Normal, 0}},
                                                                             {"ny", {Normal, 1}},
                                                                             {"nz", {Normal, 2}},
                                                                             {"u", {Uv, 0}},
                                                                             {"s", {Uv, 0}},
                                                                             {"v", {Uv, 1}},
                                                                             {"t", {Uv, 1}},
                                                                             {"red", {Colour, 0}},
                                                                             {"green", {Colour, 1}},
                                                                             {"blue", {Colour, 2}},
                                                                             {"texture_u", {Uv, 0}}}};
    for (const auto& [known, target] : kTargets)
        if (name == known) return target;
    return {};
}

template <class Values>
void checkCount(const Element& element, const Values& values)
{
    std::size_t least = 0;
    for (const Property& property : element.properties)
        least += Values::least(property.count.value_or(property.sort));
    if (element.count > values.left() / std::max<std::size_t>(least, 1)) refuse("the file ends too early");
}

template <class Values>
void readVertices(const Element& element, Values& values, Mesh& mesh)
{
    std::vector<Target> targets;
    for (const Property& property : element.properties) targets.push_back(targetOf(property.name));
    const auto has = [&](Target::List list) {
        return std::any_of(targets.begin(), targets.end(),
                           [&](const Target& target) { return target.list == list; });
    };
    const std::size_t count = element.count;
    mesh.positions.resize(3 * count);
    if (has(Target::List::Normal)) mesh.normals.resize(3 * count);
    if (has(Target::List::Uv)) mesh.uv.resize(2 * count);
    if (has(Target::List::Colour)) mesh.vertexColours.resize(3 * count);
    for (std::size_t i = 0; i < count; ++i)
        for (std::size_t p = 0; p < targets.size(); ++p) {
            const Property& property = element.properties[p];
            if (property.count) {
                for (double left = values.next(*property.count); left >= 1; --left)
                    values.next(property.sort);
                continue;
            }
            const double value = values.next(property.sort);
            const std::size_t at = targets[p].at;
            switch (targets[p].list) {
                case Target::List::Position:
                    mesh.positions[3 * i + at] = float(value);
                    break;
                case Target::List::Normal:
                    mesh.normals[3 * i + at] = float(value);
                    break;
                case Target::List::Uv:
                    mesh.uv[2 * i + at] = float(value);
                    break;
                case Target::List::Colour:
                    mesh.vertexColours[3 * i + at] = colourOf(value, property.sort);
                    break;
                default:
                    break;
            }
        }
}

template <class Values>
void readFaces(const Element& element, Values& values, Mesh& mesh)
{
    std::vector<std::uint32_t> corners;
    const std::size_t vertices = mesh.positions.size() / 3;
    mesh.indices.reserve(3 * element.count);
    for (std::uint64_t i = 0; i < element.count; ++i) {
        std::array<std::uint8_t, 3> colour{};
        bool isColoured = false;
        corners.clear();
        for (const Property& property : element.properties) {
            if (property.count) {
                const bool isFace = property.name == "vertex_index" || property.name == "vertex_indices";
                for (double left = values.next(*property.count); left >= 1; --left) {
                    const double index = values.next(property.sort);
                    if (!isFace) continue;
                    if (!(index >= 0 && index < double(vertices)))
                        refuse("a face names a vertex that is not there");
                    corners.push_back(std::uint32_t(index));
                }
                continue;
            }
            const double value = values.next(property.sort);
            const Target target = targetOf(property.name);
            if (target.list != Target::List::Colour) continue;
            colour[target.at] = colourOf(value, property.sort);
            isColoured = true;
        }
        for (std::size_t corner = 2; corner < corners.size(); ++corner) {
            for (const std::uint32_t index : {corners[0], corners[corner - 1], corners[corner]})
                mesh.indices.push_back(index);
            if (isColoured) mesh.faceColours.insert(mesh.faceColours.end(), colour.begin(), colour.end());
        }
    }
}

template <class Values>
Mesh readElements(const Header& header, Values values)
{
    Mesh mesh;
    for (const Element& element : header.elements) {
        checkCount(element, values);
        if (element.name == "vertex") {
            if (!mesh.positions.empty()) refuse("two lists of vertices");
            readVertices(element, values, mesh);
        } else if (element.name == "face") {
            readFaces(element, values, mesh);
        } else {
            for (std::uint64_t i = 0; i < element.count; ++i)
                for (const Property& property : element.properties)
                    for (double left = property.count ? values.next(*property.count) : 1; left >= 1; --left)
                        values.next(property.sort);
        }
    }
    // One of several lists of faces may have no colours.
    if (mesh.faceColours.size() != mesh.indices.size()) mesh.faceColours.clear();
    if (!mesh.faceColours.empty()) mesh.vertexColours.clear();
    return mesh;
}

}  // namespace

Mesh parsePly(std::string_view bytes)
{
    TextScanner scanner(bytes);
    const Header header = readHeader(scanner);
    if (header.form == Form::Text) return readElements(header, TextValues(scanner.rest()));
    return readElements(header, BinaryValues(scanner.rest(), header.form == Form::Big));
}

}  // namespace scansteps::viewer
