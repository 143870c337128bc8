// A body and the rays that hit it: spheres and rectangles exactly, meshes through Embree. Rays and hits are
// in coordinates of the body.
#pragma once

#include <embree3/rtcore.h>

#include <Eigen/Core>
#include <memory>
#include <optional>

#include "mesh.h"

namespace scansteps::simulate {

struct Ray
{
    Eigen::Vector3d origin;
    Eigen::Vector3d direction;  ///< of any length; distances are in multiples of it
};

/// Where a ray meets a surface. Both normals are unit vectors on the side of the ray's origin.
struct Hit
{
    double distance = 0;
    Eigen::Vector3d point;
    Eigen::Vector3d normal;           ///< of the smooth surface, for its brightness
    Eigen::Vector3d geometricNormal;  ///< of the surface that was hit
};

class Body
{
  public:
    virtual ~Body() = default;
    /// The nearest hit at a distance in (0, limit).
    virtual std::optional<Hit> intersect(const Ray& ray, double limit) const = 0;
    /// Whether there is one.
    virtual bool blocks(const Ray& ray, double limit) const { return intersect(ray, limit).has_value(); }
};

/// A sphere around the origin.
std::unique_ptr<Body> sphereBody(double radius);
/// A rectangle in the plane z = 0 around the origin, seen from both sides.
std::unique_ptr<Body> rectangleBody(double width, double height);
/// A mesh. Embree, which computes with floats, finds the triangle; the point is then computed with doubles.
std::unique_ptr<Body> meshBody(Mesh mesh);

}  // namespace scansteps::simulate
