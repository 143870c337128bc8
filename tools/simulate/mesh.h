// Triangle meshes of the simulator and the bodies that it can generate. Lengths are millimetres; triangles
// run counter-clockwise seen from outside.
#pragma once

#include <Eigen/Core>
#include <array>
#include <string>
#include <vector>

namespace scansteps::simulate {

struct Mesh
{
    std::vector<Eigen::Vector3d> vertices;
    std::vector<std::array<int, 3>> triangles;
    std::vector<Eigen::Vector3d> normals;  ///< one a vertex where the surface is smooth, otherwise empty

    /// Normals of a smooth surface: those of the triangles around a vertex, weighted by their area.
    void smooth();
};

/// A torus knot that winds p times about the z axis and q times through the hole. The centre line stays
/// within `radius` of the origin in x and y and within a third of it in z.
Mesh knotMesh(int p, int q, double radius, double tube, int along, int around);

/// A closed body like a bust, without any symmetry, `height` high: plinth, shoulders, neck, a head with nose,
/// brow and a knot of hair. The z axis points up and goes through its middle, the origin is at half height,
/// the face looks along +x.
Mesh bustMesh(double height, int rows, int columns);

/// A box with the origin in its middle.
Mesh boxMesh(const Eigen::Vector3d& size);

/// A staircase: treads of depth `tread` in x and `width` in y, each `heights[i]` above the one before, the
/// first one at z = base. Its underside is at z = 0; x and y are centred.
Mesh staircaseMesh(const std::vector<double>& heights, double tread, double width, double base);

}  // namespace scansteps::simulate
