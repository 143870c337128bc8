#include "ply_file.h"

#include <plugins/scan/checked_json.h>
#include <scansteps/error.h>

#include <bit>
#include <cstring>
#include <sstream>

namespace scansteps::simulate {
namespace {

static_assert(std::endian::native == std::endian::little, "binary PLY files are read as they are");

struct Property
{
    std::string type, countType, name;  ///< `countType` is empty unless it is a list
};
struct Element
{
    std::string name;
    std::size_t count = 0;
    std::vector<Property> properties;
};

/// The numbers of a PLY file one after the other.
class PlyValues
{
  public:
    PlyValues(std::istream& in, bool binary) : in_(in), binary_(binary) {}
    double next(const std::string& type)
    {
        double value = 0;
        if (!binary_) {
            if (!(in_ >> value)) fail("the file is cut off");
        } else if (type == "float" || type == "float32") {
            value = raw<float>();
        } else if (type == "double" || type == "float64") {
            value = raw<double>();
        } else if (type == "char" || type == "int8") {
            value = raw<std::int8_t>();
        } else if (type == "uchar" || type == "uint8") {
            value = raw<std::uint8_t>();
        } else if (type == "short" || type == "int16") {
            value = raw<std::int16_t>();
        } else if (type == "ushort" || type == "uint16") {
            value = raw<std::uint16_t>();
        } else if (type == "int" || type == "int32") {
            value = raw<std::int32_t>();
        } else if (type == "uint" || type == "uint32") {
            value = raw<std::uint32_t>();
        } else {
            fail("a property has a type that PLY does not know");
        }
        return value;
    }

  private:
    template <class T>
    T raw()
    {
        T value;
        if (!in_.read(reinterpret_cast<char*>(&value), sizeof value)) fail("the file is cut off");
        return value;
    }
    std::istream& in_;
    bool binary_;
};

std::vector<Element> readHeader(std::istream& in, bool& binary)
{
    std::vector<Element> elements;
    std::string line;
    if (!std::getline(in, line) || line.substr(0, 3) != "ply") fail("not a PLY file");
    while (std::getline(in, line)) {
        std::istringstream words(line);
        std::string word;
        words >> word;
        if (word == "end_header") return elements;
        if (word == "format") {
            words >> word;
            if (word != "ascii" && word != "binary_little_endian") fail("neither plain nor little-endian");
            binary = word != "ascii";
        } else if (word == "element") {
            words >> elements.emplace_back().name >> elements.back().count;
        } else if (word == "property" && !elements.empty()) {
            Property property;
            words >> property.type;
            if (property.type == "list") words >> property.countType >> property.type;
            words >> property.name;
            elements.back().properties.push_back(property);
        }
    }
    fail("the header has no end");
}

void addPolygon(Mesh& mesh, const std::vector<int>& corners)
{
    for (std::size_t i = 2; i < corners.size(); ++i)
        mesh.triangles.push_back({corners[0], corners[i - 1], corners[i]});
}

void readElement(PlyValues& values, const Element& element, Mesh& mesh)
{
    constexpr std::size_t kMaxElements = 50'000'000;
    if (element.count > kMaxElements) fail("too many elements");
    for (std::size_t i = 0; i < element.count; ++i) {
        Eigen::Vector3d vertex(0, 0, 0);
        std::vector<int> corners;
        for (const Property& property : element.properties) {
            const double count = property.countType.empty() ? 1 : values.next(property.countType);
            for (int k = 0; k < count; ++k) {
                const double value = values.next(property.type);
                if (property.name.size() == 1 && property.name[0] >= 'x' && property.name[0] <= 'z')
                    vertex[property.name[0] - 'x'] = value;
                if (property.name == "vertex_indices" || property.name == "vertex_index")
                    corners.push_back(value >= 0 && value < double(kMaxElements) ? static_cast<int>(value)
                                                                                 : -1);
            }
        }
        if (element.name == "vertex") mesh.vertices.push_back(vertex);
        if (element.name == "face") addPolygon(mesh, corners);
    }
}

}  // namespace

Mesh readPly(const std::string& name)
try {
    std::istringstream in(scan::readTextFile(name, "mesh"));
    bool binary = false;
    const std::vector<Element> elements = readHeader(in, binary);
    PlyValues values(in, binary);
    Mesh mesh;
    for (const Element& element : elements) readElement(values, element, mesh);
    for (const auto& triangle : mesh.triangles)
        for (const int corner : triangle)
            if (corner < 0 || corner >= static_cast<int>(mesh.vertices.size()))
                fail("a face names no vertex");
    if (mesh.triangles.empty()) fail("no triangles");
    return mesh;
} catch (const char* reason) {
    const std::string text = reason;  // failf() formats into the buffer that may hold it
    failf("mesh: %.300s: %.300s", name.c_str(), text.c_str());
}

void writePly(const std::string& name, const Mesh& mesh)
{
    const bool normals = !mesh.normals.empty();
    std::ostringstream out;
    out << "ply\nformat binary_little_endian 1.0\ncomment millimetres\nelement vertex "
        << mesh.vertices.size() << "\nproperty float x\nproperty float y\nproperty float z\n"
        << (normals ? "property float nx\nproperty float ny\nproperty float nz\n" : "") << "element face "
        << mesh.triangles.size() << "\nproperty list uchar int vertex_indices\nend_header\n";
    const auto put = [&out](const Eigen::Vector3d& vector) {
        const Eigen::Vector3f single = vector.cast<float>();
        out.write(reinterpret_cast<const char*>(single.data()), sizeof(float) * 3);
    };
    for (std::size_t i = 0; i < mesh.vertices.size(); ++i) {
        put(mesh.vertices[i]);
        if (normals) put(mesh.normals[i]);
    }
    for (const auto& triangle : mesh.triangles) {
        out.put(3);
        out.write(reinterpret_cast<const char*>(triangle.data()), sizeof triangle);
    }
    scan::writeTextFile(name, out.str(), "mesh");
}

}  // namespace scansteps::simulate
