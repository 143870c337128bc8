#include "scene_objects.h"

#include <scansteps/error.h>

#include <Eigen/Geometry>

#include <nlohmann/json.hpp>
#include <numbers>

#include "ply_file.h"

namespace scansteps::simulate {
namespace {

using Eigen::Vector3d;
using nlohmann::json;

Vector3d vectorOf(const json& value)
{
    return {value[0].get<double>(), value[1].get<double>(), value[2].get<double>()};
}

Vector3d colourOf(const json& value)
{
    return value.is_number() ? Vector3d::Constant(value.get<double>()) : vectorOf(value);
}

Eigen::Matrix3d rotationOf(const json& value)
{
    if (value.size() == 3) {
        const Vector3d vector = vectorOf(value);
        if (vector.norm() == 0) return Eigen::Matrix3d::Identity();
        const double angle = vector.norm() * std::numbers::pi / 180;
        return Eigen::AngleAxisd(angle, vector.normalized()).toRotationMatrix();
    }
    Eigen::Matrix3d matrix;
    for (int i = 0; i < 9; ++i) matrix(i / 3, i % 3) = value[static_cast<std::size_t>(i)].get<double>();
    if (!(matrix * matrix.transpose()).isIdentity(1e-3) || matrix.determinant() < 0)
        fail("scene: a matrix named \"rotation\" is not a rotation");
    return Eigen::Quaterniond(matrix).normalized().toRotationMatrix();
}

Surface surfaceOf(const json& value)
{
    Surface surface;
    const std::string texture = value.value("texture", "plain");
    if (texture == "stripes") surface.texture = Texture::Stripes;
    if (texture == "noise") surface.texture = Texture::Noise;
    if (value.contains("colour")) surface.colour = colourOf(value["colour"]);
    if (value.contains("second")) surface.second = colourOf(value["second"]);
    if (value.contains("direction")) surface.direction = vectorOf(value["direction"]);
    surface.period = value.value("period", surface.period);
    surface.seed = value.value("seed", surface.seed);
    surface.specular = value.value("specular", surface.specular);
    surface.shininess = value.value("shininess", surface.shininess);
    return surface;
}

void makeBoard(const json& value, Object& object)
{
    Surface& surface = object.surface;
    surface.texture = Texture::Checker;
    const std::vector<int> squares = value.value("squares", std::vector<int>{10, 7});
    surface.columns = squares[0];
    surface.rows = squares[1];
    surface.period = value.value("pitch", 20.0);
    surface.dots = value.value("dots", true);
    const double margin = 2 * value.value("margin", surface.period);
    object.body = rectangleBody(squares[0] * surface.period + margin, squares[1] * surface.period + margin);
}

Mesh meshOf(const std::string& shape, const json& value, const std::string& folder)
{
    if (shape == "staircase")
        return staircaseMesh(value.value("heights", std::vector<double>{0.1, 0.2, 0.5, 1, 2, 5, 10}),
                             value.value("tread", 20.0), value.value("width", 80.0),
                             value.value("base", 5.0));
    if (shape == "knot") {
        const std::vector<int> windings = value.value("windings", std::vector<int>{2, 3});
        return knotMesh(windings[0], windings[1], value.value("radius", 60.0), value.value("tube", 14.0),
                        value.value("along", 900), value.value("around", 120));
    }
    if (shape == "bust")
        return bustMesh(value.value("height", 180.0), value.value("along", 700), value.value("around", 700));
    if (!value.contains("file")) fail("scene: an object of the shape \"file\" names no \"file\"");
    Mesh mesh = readPly((std::filesystem::path(folder) / value["file"].get<std::string>()).string());
    if (value.value("smooth", true)) mesh.smooth();
    return mesh;
}

}  // namespace

scan::Pose poseOf(const json& value)
{
    scan::Pose pose;
    if (value.contains("rotation")) pose.rotation = rotationOf(value["rotation"]);
    if (value.contains("translation")) pose.translation = vectorOf(value["translation"]);
    return pose;
}

Object objectOf(const json& value, const std::string& folder)
{
    Object object;
    object.shape = value["shape"].get<std::string>();
    if (value.contains("pose")) object.pose = poseOf(value["pose"]);
    if (value.contains("surface")) object.surface = surfaceOf(value["surface"]);
    const std::vector<double> size = value.value("size", std::vector<double>{});
    const bool box = object.shape == "box";
    if (!size.empty() && size.size() != (box ? 3U : 2U))
        fail("scene: the \"size\" of a plane has two numbers, that of a box three");
    if (object.shape == "sphere") object.body = sphereBody(value.value("radius", 50.0));
    if (object.shape == "plane")
        object.body = size.empty() ? rectangleBody(200, 200) : rectangleBody(size[0], size[1]);
    if (object.shape == "board") makeBoard(value, object);
    if (object.body) return object;
    Mesh mesh = box ? boxMesh(size.empty() ? Vector3d(100, 100, 2) : Vector3d(size[0], size[1], size[2]))
                    : meshOf(object.shape, value, folder);
    object.mesh = std::make_shared<Mesh>(std::move(mesh));
    object.body = meshBody(*object.mesh);
    return object;
}

}  // namespace scansteps::simulate
