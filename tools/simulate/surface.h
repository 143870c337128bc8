// What a surface does with light: diffuse colour, possibly from a texture computed from the place on the
// body, and a highlight.
#pragma once

#include <Eigen/Core>
#include <cstdint>

namespace scansteps::simulate {

enum class Texture
{
    Plain,
    Stripes,  ///< across `direction`, a pair of stripes for each `period`
    Checker,  ///< squares of `period` in x and y, see Surface
    Noise,    ///< smooth random mixtures of the two colours, details of about `period`
};

struct Surface
{
    Texture texture = Texture::Plain;
    Eigen::Vector3d colour{0.8, 0.8, 0.8};  ///< red, green, blue; reflected share of the light, 0 to 1
    Eigen::Vector3d second{0.05, 0.05, 0.05};
    double period = 10;
    Eigen::Vector3d direction{1, 0, 0};
    std::uint32_t seed = 1;
    double specular = 0;    ///< share of the light in the highlight
    double shininess = 50;  ///< exponent of the highlight

    // Checker: this many squares, centred, `second` in the first corner; `colour` around them. In three
    // squares around the middle there may be dots of the other colour, which tell how the board is turned.
    int columns = 0;
    int rows = 0;
    bool dots = false;

    /// Diffuse colour at a point in coordinates of the body.
    Eigen::Vector3d albedo(const Eigen::Vector3d& point) const;
    /// Reflected light for unit vectors to the light and to the eye: the diffuse colour, and the highlight
    /// (Blinn and Phong, normalised so that the exponent does not change its total). To be multiplied by the
    /// irradiance.
    Eigen::Vector3d reflectance(const Eigen::Vector3d& albedo, const Eigen::Vector3d& normal,
                                const Eigen::Vector3d& toLight, const Eigen::Vector3d& toEye) const;
};

}  // namespace scansteps::simulate
